// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <algorithm>
#include <cctype>
#include <limits>
#include <string>

#include <vorn/core/system.hpp>
#include <vorn/graphic/graphic_object.hpp>
#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/pcd_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>
#include <vorn/graphic/xyz_file.hpp>

#include "core/error.hpp"
#include "pointcloud/texture_colors.hpp"

namespace vorn::mv {

namespace {

/// Calls `action(file, formatName)` with the file class for an extension.
/// @return false when there is none
template <class Action>
bool withFileClass(std::string const& extension, Action const& action) {
  if (extension == "ply") {
    action(graphic::PLYFile(), "PLY");
  } else if (extension == "obj") {
    action(graphic::OBJFile(), "OBJ");
  } else if (extension == "stl") {
    action(graphic::STLFile(), "STL");
  } else {
    return false;
  }
  return true;
}

void sayUnsupported() {
  System::message("Unsupported extension\n");
}

/// What follows the last dot of a path's last part, in small letters.
std::string extensionOf(std::string const& path) {
  std::size_t const dot = path.find_last_of("./");
  std::string extension = dot != std::string::npos && path[dot] == '.' ? path.substr(dot + 1) : "";
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return extension;
}

/// As `withFileClass`, by the path's extension, which must be a known one, and for more of them.
template <class Action>
void withFileClassOf(std::string const& path, char const* context, Action const& action) {
  std::string const extension = extensionOf(path);
  if (extension == "pcd") {
    action(graphic::PCDFile(), "PCD");
  } else if (extension == "xyz") {
    action(graphic::XYZFile(), "XYZ");
  } else if (!withFileClass(extension, action)) {
    throw error(path + " does not end in .ply, .pcd, .xyz, .obj or .stl", context);
  }
}

/// A list as one column of a matrix.
template <class T>
cv::Mat_<T> columnOf(std::vector<T> const& list) {
  return list.empty() ? cv::Mat_<T>() : cv::Mat_<T>(list, true);
}

cv::Mat_<cv::Vec3b> columnOfTexture(std::vector<cv::Vec4b> const& colors) {
  cv::Mat_<cv::Vec3b> texture;
  if (!colors.empty()) {
    texture.create(static_cast<int>(colors.size()), 1);
    std::transform(colors.begin(), colors.end(), texture.begin(), textureFromColor);
  }
  return texture;
}

} // namespace

PointCloud PointCloud::load(std::string const& path) {
  PointCloud cloud;
  withFileClassOf(path, "load", [&](auto file, char const* /*format*/) {
    graphic::GraphicObject const object = file.read(path);
    try {
      cloud = fromVertices(object);
    } catch (Exception const& e) {
      throw error(path + ": " + e.message(), "load");
    }
  });
  return cloud;
}

PointCloud PointCloud::fromVertices(graphic::GraphicObject const& object) {
  if (object.vertices().size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw error(std::to_string(object.vertices().size()) + " points are more than 2147483647",
                "fromVertices");
  }
  PointCloud cloud(columnOf(object.vertices()), false, columnOf(object.normals()),
                   columnOfTexture(object.colors()));
  for (auto const& [name, values] : object.fields()) {
    cloud.fields_[name] = columnOf(values);
  }
  cloud.checkSizes();
  cloud.offset_ = object.offset();
  return cloud;
}

void PointCloud::save(std::string const& path) const {
  withFileClassOf(path, "save",
                  [&](auto file, char const* /*format*/) { file.write(path, getGraphicObject(true)); });
}

void PointCloud::loadFromFile(std::string const& path, std::string const& extension) {
  auto const load = [&](auto file, char const* format) {
    System::message(std::string("Loading ") + format + " file: " + path + "...\n");
    *this = PointCloud(file.read(path));
    System::message("...DONE\n");
  };
  if (!withFileClass(extension, load)) {
    sayUnsupported();
  }
}

void PointCloud::saveToFile(std::string const& path, std::string const& extension) const {
  auto const save = [&](auto file, char const* format) {
    System::message(std::string("Saving ") + format + " file: " + path + "...\n");
    file.write(path, getGraphicObject(true));
    System::message("DONE\n");
  };
  if (!withFileClass(extension, save)) {
    sayUnsupported();
  }
}

} // namespace vorn::mv
