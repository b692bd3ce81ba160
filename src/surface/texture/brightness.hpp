// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>
#include <vorn/mv/surface/texture.hpp>

#include "surface/texture/mesh_view.hpp"

namespace vorn::mv {

/// What makes views equally bright.
struct BrightnessMatch {
  std::vector<cv::Vec3d> gains; ///< of the views: blue, green, red
  int sets = 1;                 ///< of groups of views that see common places; gains tie those of a set
};

BrightnessMatch matchBrightness(std::vector<TextureView> const& views, std::vector<MeshView> const& seen);

} // namespace vorn::mv
