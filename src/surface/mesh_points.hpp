// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/surface/mesh.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// The mesh of a cloud without a grid, see `meshOf`.
SurfaceMesh meshOfPoints(PointCloud const& cloud, MeshSettings const& settings, Progress const& progress);

} // namespace vorn::mv
