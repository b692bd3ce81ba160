// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn::mv {

/// Points all over the triangles of a mesh, for what works on points: a part's drawing, whose large faces
/// have corners alone, as the target of `registerClouds` and `calcDeviations`.
///
/// A triangle with a longer edge than asked is divided into cells of half that length along its longest edge
/// and across it; the middles of the cells are the points. So a face has 4 points and a few more on the
/// square of that length, a needle 2 on that length, and a triangle that is small already one.
/// @param longestEdge of a triangle that is not divided, above 0, in the mesh's unit
/// @returns a cloud without a grid, with the triangles' normals, in the order of the triangles; triangles
///          without area have no points
/// @throws Exception for an edge that is not above 0, a triangle that names a vertex that does not exist or
///         one that is not finite, a mesh without area, and more than 100 million points
VORN_API PointCloud sampleMesh(SurfaceMesh const& mesh, double longestEdge);

} // namespace vorn::mv
