// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/contrast_mask.hpp"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace vorn::mv::sl {

void settleContrast(ScanMaps& maps, std::vector<uchar> const& hasUnsettled, int reach) {
  auto const first = std::find(hasUnsettled.begin(), hasUnsettled.end(), 1);
  if (first == hasUnsettled.end()) {
    return;
  }
  auto const last = std::find(hasUnsettled.rbegin(), hasUnsettled.rend(), 1);
  int const firstRow = static_cast<int>(first - hasUnsettled.begin());
  int const endRow = static_cast<int>(hasUnsettled.rend() - last);
  int const width = 2 * (reach / 2) + 1;
  // What the closing of these rows depends on.
  int const top = std::max(0, firstRow - width);
  int const bottom = std::min(maps.contrast.rows, endRow + width);
  cv::Mat const kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(width, width));
  cv::Mat lit = maps.contrast.rowRange(top, bottom);
  cv::dilate(lit, lit, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT | cv::BORDER_ISOLATED);
  cv::erode(lit, lit, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT | cv::BORDER_ISOLATED);
  for (int y = firstRow; y < endRow; ++y) {
    uchar const* const around = maps.contrast[y];
    uchar* const state = maps.state.inner[y];
    for (int x = 0; hasUnsettled[static_cast<std::size_t>(y)] != 0 && x < maps.contrast.cols; ++x) {
      if (state[x] == pixel_state::unsettledContrast) {
        state[x] = around[x] != 0 ? pixel_state::open : pixel_state::lowContrast;
      }
    }
  }
}

} // namespace vorn::mv::sl
