// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>
#include <vector>
#include <vorn/mv/surface/texture.hpp>

#include "surface/texture/mesh_view.hpp"

namespace vorn::mv {

/// Triangles that hang together and show one view, and their place in its image and in the atlas.
struct AtlasPatch {
  int view = -1;
  cv::Rect inImage;
  cv::Point inAtlas;
};

/// Copies the patches of the images, times their gains, into an atlas that is grey elsewhere.
/// @param texture with gains
void paintPatches(std::vector<AtlasPatch> const& patches, std::vector<TextureView> const& views,
                  cv::Size const& size, MeshTexture& texture);

/// Gives the triangles of painted patches the mean of all images that show them. A view's weight at a vertex
/// is that of the triangle about it which it shows worst, so that it fades out where the view's sight ends.
/// @param patchOf of each triangle; -1 for those that no view sees
void blendPatches(SurfaceMesh const& mesh, std::vector<AtlasPatch> const& patches,
                  std::vector<int> const& patchOf, std::vector<TextureView> const& views,
                  std::vector<MeshView> const& seen, MeshTexture& texture);

} // namespace vorn::mv
