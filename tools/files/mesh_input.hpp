// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/surface/mesh.hpp>

#include "tools/files/cloud_input.hpp"

namespace vorn::tools {

/// A mesh, or points, as they stand in a file; where there are triangles but no normals, with those of the
/// triangles.
mv::SurfaceMesh meshOfObject(graphic::GraphicObject const& object);

/// Of a mesh whose triangles are large beside its size, as a drawing's are, points all over them; of anything
/// else the cloud of the file.
mv::PointCloud surfacePointsOf(CloudInput const& input);

} // namespace vorn::tools
