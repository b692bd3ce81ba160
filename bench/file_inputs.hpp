// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <filesystem>
#include <opencv2/core.hpp>
#include <string>
#include <system_error>
#include <unistd.h>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::bench {

/// A cloud as a scanner gives it: a wavy surface with noise, in millimetres, with normals and colours.
inline graphic::GraphicObject scan(int rows, int columns) {
  cv::RNG random(1);
  graphic::GraphicObject object;
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      double const x = 0.3 * column - 150;
      double const y = 0.3 * row - 150;
      double const z = 500 + 20 * std::sin(x / 30) * std::cos(y / 40) + random.gaussian(0.02);
      object.vertices().emplace_back(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
      cv::Vec3d const normal(-20.0 / 30 * std::cos(x / 30) * std::cos(y / 40),
                             20.0 / 40 * std::sin(x / 30) * std::sin(y / 40), 1 + random.gaussian(0.01));
      object.normals().emplace_back(cv::normalize(normal));
      object.colors().emplace_back(cv::saturate_cast<uchar>(random.uniform(0, 256)),
                                   cv::saturate_cast<uchar>(random.uniform(0, 256)),
                                   cv::saturate_cast<uchar>(random.uniform(0, 256)), uchar{255});
    }
  }
  return object;
}

/// The scan as a mesh of two triangles a grid cell.
inline graphic::GraphicObject triangulated(int rows, int columns) {
  graphic::GraphicObject object = scan(rows, columns);
  for (int row = 0; row + 1 < rows; ++row) {
    for (int column = 0; column + 1 < columns; ++column) {
      int const corner = row * columns + column;
      object.triangles().emplace_back(corner, corner + 1, corner + columns);
      object.triangles().emplace_back(corner + 1, corner + columns + 1, corner + columns);
    }
  }
  return object;
}

/// The path of a file of this process with that extension, removed when the process ends.
inline std::string filePath(std::string const& extension) {
  struct Folder {
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("vorn-bench-" + std::to_string(getpid()));
    Folder() { std::filesystem::create_directory(path); }
    ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static Folder const folder;
  return (folder.path / ("file" + extension)).string();
}

} // namespace vorn::bench
