// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <array>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/imaging/image_depth.hpp>
#include <vorn/mv/imaging/morph_shape.hpp>

namespace vorn::mv {

int ImageDepth::cvDepth() const {
  constexpr std::array<int, 5> depths{CV_8U, CV_16S, CV_32S, CV_32F, CV_64F};
  return depths.at(static_cast<std::size_t>(getIndex()));
}

int MorphShape::cvShape() const {
  constexpr std::array<int, 3> shapes{cv::MORPH_RECT, cv::MORPH_CROSS, cv::MORPH_ELLIPSE};
  return shapes.at(static_cast<std::size_t>(getIndex()));
}

} // namespace vorn::mv
