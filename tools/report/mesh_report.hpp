// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/surface/mesh.hpp>

#include "tools/report/report.hpp"

namespace vorn::tools {

/// Prints what a mesh measures, adds it to a report as "mesh", and warns of faults: of edges that are no
/// surface's, and of triangles without area.
void reportMesh(mv::SurfaceMesh const& mesh, Report& report);

} // namespace vorn::tools
