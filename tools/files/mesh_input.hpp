// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn::tools {

/// A mesh, or points, as they stand in a file; where there are triangles but no normals, with those of the
/// triangles.
mv::SurfaceMesh meshOfObject(graphic::GraphicObject const& object);

} // namespace vorn::tools
