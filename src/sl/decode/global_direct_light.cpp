// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/global_direct_light.hpp>

#include <algorithm>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "sl/decode/stack_checks.hpp"

namespace vorn::mv {

namespace {

/// Widens the range [lowest, highest] of `length` pixels by their values in one more image.
VORN_TARGET_CLONES
void widenRange(uchar const* image, int length, float* __restrict highest, float* __restrict lowest) {
  for (int x = 0; x < length; ++x) {
    auto const value = static_cast<float>(image[x]);
    highest[x] = value > highest[x] ? value : highest[x];
    lowest[x] = value < lowest[x] ? value : lowest[x];
  }
}

} // namespace

void estimate_global_direct_light(cv::Mat& direct, cv::Mat& global, std::vector<cv::Mat> const& images,
                                  cv::Mat& highest, cv::Mat& lowest) {
  if (images.empty()) {
    return;
  }
  requireImageStack(images);
  // Headers of our own: an output may be one of the images.
  std::vector<cv::Mat> const stack = images;
  cv::Size const size = stack[0].size();
  for (cv::Mat* const output : {&direct, &global, &highest, &lowest}) {
    output->create(size, CV_32FC1);
  }
  parallelRows(size.height, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      float* const high = highest.ptr<float>(row);
      float* const low = lowest.ptr<float>(row);
      std::fill_n(high, size.width, 0.0F);
      std::fill_n(low, size.width, 255.0F);
      for (cv::Mat const& image : stack) {
        widenRange(image.ptr<uchar>(row), size.width, high, low);
      }
      float* const directRow = direct.ptr<float>(row);
      float* const globalRow = global.ptr<float>(row);
      for (int x = 0; x < size.width; ++x) {
        directRow[x] = high[x] - low[x];
        globalRow[x] = 2.0F * low[x];
      }
    }
  });
}

} // namespace vorn::mv
