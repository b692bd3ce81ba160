// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::tools {

/// A file of points as a command reads it.
struct CloudInput {
  /// Organized where the file is an image of coordinates (CV_32FC3 TIFF); points that are no numbers are
  /// absent.
  mv::PointCloud cloud;
  /// What else the file held; without vertices where it is an image.
  graphic::GraphicObject object;
};

/// Reads points or a mesh (ply, obj, stl) or a grid of points (tiff). Warns of transparency, which clouds do
/// not keep.
/// @throws Exception for another ending, a picture of other values than coordinates, or a file that cannot be
///         read
CloudInput readCloudInput(std::string const& path);

} // namespace vorn::tools
