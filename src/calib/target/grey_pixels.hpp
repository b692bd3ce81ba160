// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// Calls `visit` with a row of a grey image: pixels of 8 bits, or floats in the same grey levels.
///
/// @param image H x W CV_8UC1 or CV_32FC1
template <class Visit>
decltype(auto) withRow(cv::Mat const& image, int row, Visit const& visit) {
  return image.depth() == CV_8U ? visit(image.ptr<std::uint8_t>(row)) : visit(image.ptr<float>(row));
}

} // namespace vorn::mv
