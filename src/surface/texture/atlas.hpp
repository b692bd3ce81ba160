// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>
#include <vorn/mv/surface/texture.hpp>

#include "surface/texture/mesh_view.hpp"

namespace vorn::mv {

/// The view that each triangle is to show: the one in which it is largest, or that of most of its neighbours
/// where it is nearly as large; -1 where none sees it.
std::vector<int> viewsOfTriangles(SurfaceMesh const& mesh, std::vector<MeshView> const& seen);

/// Fills the atlas of `texture` from its `viewOfTriangle` and `gains`.
/// @throws Exception when it would be larger than 32767 pixels a side
void packAtlas(SurfaceMesh const& mesh, std::vector<TextureView> const& views,
               std::vector<MeshView> const& seen, TextureSettings const& settings, MeshTexture& texture);

} // namespace vorn::mv
