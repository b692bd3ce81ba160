// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/contrast_mask.hpp"

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Rows whose surroundings are closed together.
constexpr int bandRows = 128;
constexpr int bandsBetweenAskings = 4;

VORN_TARGET_CLONES
void settleRow(uchar const* around, int n, uchar* __restrict state) {
  for (int x = 0; x < n; ++x) {
    uchar const settled = around[x] != 0 ? pixel_state::open : pixel_state::lowContrast;
    state[x] = state[x] == pixel_state::unsettledContrast ? settled : state[x];
  }
}

/// Settles rows [firstRow, endRow).
void settleBand(ScanMaps& maps, int firstRow, int endRow, int reach) {
  int const width = 2 * (reach / 2) + 1;
  // What the closing of these rows depends on.
  int const top = std::max(0, firstRow - width);
  int const bottom = std::min(maps.size().height, endRow + width);
  cv::Mat const kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(width, width));
  cv::Mat_<uchar> lit(bottom - top, maps.size().width);
  for (int y = top; y < bottom; ++y) {
    maps.contrast.readRow(y, lit[y - top]);
  }
  constexpr int isolated = cv::BORDER_CONSTANT | cv::BORDER_ISOLATED;
  cv::dilate(lit, lit, kernel, {-1, -1}, 1, isolated);
  cv::erode(lit, lit, kernel, {-1, -1}, 1, isolated);
  for (int y = firstRow; y < endRow; ++y) {
    settleRow(lit[y - top], lit.cols, maps.state.inner[y]);
  }
}

} // namespace

void settleContrast(ScanMaps& maps, std::vector<uchar> const& hasUnsettled, int reach,
                    Progress const& progress) {
  int const rows = maps.size().height;
  int const bands = (rows + bandRows - 1) / bandRows;
  parallelRows(bands, bandsBetweenAskings, progress, "decoding", [&](int first, int end) {
    for (int band = first; band < end; ++band) {
      auto const rowAt = [&](int y) { return hasUnsettled.begin() + y; };
      int const firstRow = band * bandRows;
      int const endRow = std::min(firstRow + bandRows, rows);
      if (std::find(rowAt(firstRow), rowAt(endRow), 1) != rowAt(endRow)) {
        settleBand(maps, firstRow, endRow, reach);
      }
    }
  });
}

} // namespace vorn::mv::sl
