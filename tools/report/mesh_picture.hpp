// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <vector>

#include <vorn/mv/surface/mesh.hpp>

namespace vorn::tools {

/// A mesh as it looks from afar along +z of a frame, x right and y down, lit from the eye.
/// @param eyeFromMesh rigid
/// @param colors      one a vertex: blue, green, red
/// @param width       of the picture, pixels; its height follows
cv::Mat_<cv::Vec3b> picturedMesh(mv::SurfaceMesh const& mesh, cv::Matx44d const& eyeFromMesh,
                                 std::vector<cv::Vec3b> const& colors, cv::Vec3b const& ground, int width);

} // namespace vorn::tools
