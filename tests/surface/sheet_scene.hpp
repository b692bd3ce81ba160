// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <vector>

#include <vorn/mv/surface/texture.hpp>

/// A coloured sheet that cameras look at. Lengths are in millimetres.
namespace vorn::test {

constexpr int width = 320;
constexpr int height = 240;
constexpr double focal = 400.0;

/// @param scale how many times the pixels of the usual one it has, each way
inline mv::CameraModel pinhole(int scale = 1) {
  mv::CameraModel camera;
  double const f = focal * scale;
  nlohmann::json matrix = {
      {"rows", 3},
      {"cols", 3},
      {"dt", "d"},
      {"data", {f, 0, 0.5 * (width * scale - 1), 0, f, 0.5 * (height * scale - 1), 0, 0, 1}}};
  nlohmann::json distortion = {{"rows", 1}, {"cols", 5}, {"dt", "d"}, {"data", {0, 0, 0, 0, 0}}};
  camera.read(
      {{"Resolution", {width * scale, height * scale}}, {"K", matrix}, {"D", distortion}, {"Error", 0.1}});
  return camera;
}

/// The colour of a place on the sheet z = 0: smooth, different everywhere.
inline cv::Vec3d colorOf(double x, double y) {
  return {128.0 + 2.0 * x, 128.0 + 2.5 * y, 128.0 + 20.0 * std::sin(0.2 * x)};
}

/// A camera at a distance of 100 from the sheet z = 0, on the side of -z, turned about y and looking at the
/// middle.
inline cv::Matx44d viewFromMesh(double degrees) {
  double const a = degrees * CV_PI / 180.0;
  return {std::cos(a), 0, std::sin(a), 0, 0, 1, 0, 0, -std::sin(a), 0, std::cos(a), 100, 0, 0, 0, 1};
}

/// The image of the sheet by closed form: each pixel's ray met with it.
inline cv::Mat imageOf(cv::Matx44d const& pose) {
  cv::Mat_<cv::Vec3b> image(height, width, cv::Vec3b(7, 7, 7));
  cv::Matx44d const back = pose.inv();
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      cv::Vec4d const ray = back * cv::Vec4d((column - 159.5) / focal, (row - 119.5) / focal, 1.0, 0.0);
      double const t = -back(2, 3) / ray[2];
      double const x = back(0, 3) + t * ray[0];
      double const y = back(1, 3) + t * ray[1];
      if (std::abs(x) < 25.0 && std::abs(y) < 20.0) {
        image(row, column) = cv::Vec3b(colorOf(x, y));
      }
    }
  }
  return image;
}

/// The sheet |x| <= 20, |y| <= 15 of cells of 1, facing -z.
inline mv::SurfaceMesh sheet(double z = 0.0, double half = 20.0) {
  mv::SurfaceMesh mesh;
  int const columns = static_cast<int>(2 * half) + 1;
  for (int i = 0; i < columns * 31; ++i) {
    mesh.vertices.emplace_back(cv::Vec3d(i % columns - half, i / columns - 15.0, z));
    mesh.normals.emplace_back(0.0F, 0.0F, -1.0F);
  }
  for (int i = 0; i + columns + 1 < columns * 31; ++i) {
    if (i % columns + 1 < columns) {
      mesh.triangles.emplace_back(i, i + columns, i + 1);
      mesh.triangles.emplace_back(i + 1, i + columns, i + columns + 1);
    }
  }
  return mesh;
}

inline std::vector<mv::TextureView> twoViews() {
  std::vector<mv::TextureView> views;
  for (double const degrees : {-25.0, 20.0}) {
    cv::Matx44d const pose = viewFromMesh(degrees);
    views.push_back({imageOf(pose), pinhole(), pose});
  }
  return views;
}

inline double farthest(cv::Vec3d const& a, cv::Vec3d const& b) {
  return cv::norm(a - b, cv::NORM_INF);
}

} // namespace vorn::test
