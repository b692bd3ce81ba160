// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/surface/mesh.hpp>

#include "core/error.hpp"

namespace vorn::mv {

/// @throws Exception when a triangle names a vertex that there is not
inline void checkTriangles(SurfaceMesh const& mesh, char const* function) {
  auto const count = static_cast<int>(mesh.vertices.size());
  for (cv::Vec3i const& triangle : mesh.triangles) {
    for (int const corner : triangle.val) {
      if (corner < 0 || corner >= count) {
        throw error("A triangle names vertex " + std::to_string(corner) + " of " + std::to_string(count),
                    function);
      }
    }
  }
}

} // namespace vorn::mv
