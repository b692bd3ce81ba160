// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::tools {

/// Reads a cloud or mesh in the format of the path's ending: ply, pcd, xyz, obj or stl, in any case.
/// @throws Exception for another ending or a file that cannot be read
graphic::GraphicObject readGraphic(std::string const& path);

/// Writes a cloud or mesh in the format of the path's ending.
/// @throws Exception for another ending or when the file cannot be written
void writeGraphic(std::string const& path, graphic::GraphicObject const& object);

/// @throws Exception unless the path ends in a format that `writeGraphic` knows, so that a long computation
///         does not end in that
void checkGraphicPath(std::string const& path);

/// Whether the format of a path's ending holds triangles: ply, obj or stl.
bool holdsTriangles(std::string const& path);

/// The same as `checkGraphicPath` for a format that holds triangles.
void checkMeshPath(std::string const& path);

/// The usual distance between grid neighbours along rows, in mm; 0 where there are none.
float medianSpacing(cv::Mat_<cv::Vec3f> const& xyz);

/// Joins grid neighbours into triangles wherever the surface is continuous, so that a scan can be kept as a
/// mesh. Works on an object made from all present points of a grid in row-major order.
/// @param xyz      the H x W grid that the vertices came from
/// @param present  H x W CV_8U, non-zero where the grid's point became a vertex
/// @param maxEdge  longest edge that a triangle may have, in mm
void addGridTriangles(graphic::GraphicObject& object, cv::Mat_<cv::Vec3f> const& xyz,
                      cv::Mat_<uchar> const& present, float maxEdge);

/// `addGridTriangles` with edges of up to five times the usual distance between neighbours: longer ones cross
/// a step.
void addSurface(graphic::GraphicObject& object, cv::Mat_<cv::Vec3f> const& xyz,
                cv::Mat_<uchar> const& present);

} // namespace vorn::tools
