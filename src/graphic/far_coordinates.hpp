// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Sets the object's vertices, and its offset, from coordinates in double precision. There is an offset only
/// where floats would lose more than a hundred-thousandth of the extent, so that files near zero, single
/// points, and doubles that were floats once keep their coordinates as they are. It has as few digits as keep
/// the vertices within some extents of zero.
void setPlaces(GraphicObject& object, std::vector<cv::Vec3d> const& places);

/// The place of a vertex.
inline cv::Vec3d placeOf(GraphicObject const& object, cv::Vec3f const& vertex) {
  return object.offset() + cv::Vec3d(vertex);
}

/// Whether the object's places need doubles.
inline bool hasOffset(GraphicObject const& object) {
  return object.offset() != cv::Vec3d();
}

} // namespace vorn::graphic
