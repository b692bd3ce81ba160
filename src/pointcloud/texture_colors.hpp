// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

namespace vorn::mv {

// Files and graphic objects hold red, green, blue; textures blue, green, red like every OpenCV image.

inline cv::Vec3b textureFromColor(cv::Vec4b const& color) {
  return {color[2], color[1], color[0]};
}

inline cv::Vec4b colorFromTexture(cv::Vec3b const& texture) {
  return {texture[2], texture[1], texture[0], 255};
}

} // namespace vorn::mv
