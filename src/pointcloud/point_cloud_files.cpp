// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>

namespace vorn::mv {

namespace {

/// Calls `action(file, formatName)` with the file class for an extension, or says that there is none.
template <class Action>
void withFileClass(std::string const& extension, Action const& action) {
  if (extension == "ply") {
    action(graphic::PLYFile(), "PLY");
  } else if (extension == "obj") {
    action(graphic::OBJFile(), "OBJ");
  } else if (extension == "stl") {
    action(graphic::STLFile(), "STL");
  } else {
    std::cout << "Unsupported extension\n" << std::flush;
  }
}

} // namespace

void PointCloud::loadFromFile(std::string const& path, std::string const& extension) {
  auto const load = [&](auto file, char const* format) {
    std::cout << "Loading " << format << " file: " << path << "...\n" << std::flush;
    *this = PointCloud(file.read(path));
    std::cout << "...DONE\n" << std::flush;
  };
  withFileClass(extension, load);
}

void PointCloud::saveToFile(std::string const& path, std::string const& extension) const {
  auto const save = [&](auto file, char const* format) {
    std::cout << "Saving " << format << " file: " << path << "...\n" << std::flush;
    file.write(path, getGraphicObject(true));
    std::cout << "DONE\n" << std::flush;
  };
  withFileClass(extension, save);
}

} // namespace vorn::mv
