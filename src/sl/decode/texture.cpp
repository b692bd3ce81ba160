// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/texture.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

template <class T>
VORN_TARGET_CLONES void whiteRow(std::array<T const*, 4> const& steps, float greyPerLevel, uchar* white,
                                 int n) {
  T const* const p0 = steps[0];
  T const* const p1 = steps[1];
  T const* const p2 = steps[2];
  T const* const p3 = steps[3];
  for (int x = 0; x < n; ++x) {
    auto const sine = static_cast<float>(p0[x] - p2[x]);
    auto const cosine = static_cast<float>(p1[x] - p3[x]);
    float const mean = 0.25F * static_cast<float>(p0[x] + p1[x] + p2[x] + p3[x]);
    float const level = mean + 0.5F * std::sqrt(sine * sine + cosine * cosine);
    float const rounding = level * greyPerLevel + 0.5F; // and truncation
    white[x] = static_cast<uchar>(static_cast<int>(std::min(rounding, 255.0F)));
  }
}

template <class T>
cv::Mat whiteLevelOf(GreyStack const& stack) {
  cv::Mat white(stack.images[0].size(), CV_8UC1);
  auto const greyPerLevel = static_cast<float>(1.0 / stack.perGrey());
  parallelRows(white.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      auto const row = [&](std::size_t image) { return stack.images[image].ptr<T>(y); };
      whiteRow<T>({row(0), row(1), row(2), row(3)}, greyPerLevel, white.ptr(y), white.cols);
    }
  });
  return white;
}

} // namespace

cv::Mat whiteLevel(GreyStack const& stack) {
  return stack.images[0].depth() == CV_8U ? whiteLevelOf<uchar>(stack) : whiteLevelOf<ushort>(stack);
}

} // namespace vorn::mv::sl
