// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/texture.hpp"

#include <algorithm>
#include <cmath>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

VORN_TARGET_CLONES
void whiteRow(uchar const* p0, uchar const* p1, uchar const* p2, uchar const* p3, uchar* white, int n) {
  for (int x = 0; x < n; ++x) {
    auto const sine = static_cast<float>(p0[x] - p2[x]);
    auto const cosine = static_cast<float>(p1[x] - p3[x]);
    float const mean = 0.25F * static_cast<float>(p0[x] + p1[x] + p2[x] + p3[x]);
    float const level = mean + 0.5F * std::sqrt(sine * sine + cosine * cosine);
    float const rounding = level + 0.5F; // and truncation
    white[x] = static_cast<uchar>(static_cast<int>(std::min(rounding, 255.0F)));
  }
}

} // namespace

cv::Mat whiteLevel(std::vector<cv::Mat> const& images) {
  cv::Mat white(images[0].size(), CV_8UC1);
  parallelRows(white.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      whiteRow(images[0].ptr(y), images[1].ptr(y), images[2].ptr(y), images[3].ptr(y), white.ptr(y),
               white.cols);
    }
  });
  return white;
}

} // namespace vorn::mv::sl
