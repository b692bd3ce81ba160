// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <vorn/core/export.hpp>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How far `simplified` goes.
struct SimplifySettings {
  /// No vertex of the given mesh is farther than this from the result, in the vertices' unit; above 0.
  double maxError = 0.0;
  /// It ends with so many triangles, if the error allows so few.
  std::size_t minTriangles = 0;
};

/// A mesh of fewer triangles over some of the vertices of a given one.
///
/// Vertices are drawn onto neighbours, those first that move the surface least by their quadrics (M. Garland
/// and P. S. Heckbert, "Surface simplification using quadric error metrics", 1997). Every vertex that was
/// drawn away is remembered with the triangle next to it, so the error is measured against the mesh given and
/// does not add up; rims keep to theirs likewise. Pieces, holes and handles stay what they are, and no
/// triangle turns by more than a right angle. Working memory: about 400 bytes a triangle.
/// @throws Exception when maxError is not above 0, a triangle names a vertex that does not exist, or an edge
///         has more than two triangles or two that face opposite sides
/// @throws Cancelled when stopped by the observer
VORN_API SurfaceMesh simplified(SurfaceMesh const& mesh, SimplifySettings const& settings,
                                Observer* observer = nullptr);

} // namespace vorn::mv
