// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase_blur.hpp"

#include <cmath>

#include <opencv2/imgproc.hpp>

#include "core/parallel.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float pi = 3.14159265F;
constexpr float largestTurn = pi / 4.0F;

} // namespace

void blurPhase(cv::Mat_<float>& phase, cv::Mat_<float> const& magnitude, cv::Mat_<uchar> const& mask,
               int radius) {
  cv::Mat_<float> real(phase.size());
  cv::Mat_<float> imaginary(phase.size());
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        float const m = mask(y, x) != 0 ? magnitude(y, x) : 0.0F;
        real(y, x) = m * std::cos(phase(y, x));
        imaginary(y, x) = m * std::sin(phase(y, x));
      }
    }
  });
  cv::Size const window(2 * radius + 1, 2 * radius + 1);
  cv::blur(real, real, window);
  cv::blur(imaginary, imaginary, window);
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        if (mask(y, x) == 0) {
          continue;
        }
        float const smooth = std::atan2(imaginary(y, x), real(y, x));
        float const turn = std::remainder(smooth - phase(y, x), 2.0F * pi);
        if (std::fabs(turn) <= largestTurn) {
          float const wrapped = smooth < 0.0F ? smooth + 2.0F * pi : smooth;
          phase(y, x) = wrapped < 2.0F * pi ? wrapped : 0.0F;
        }
      }
    }
  });
}

} // namespace vorn::mv::sl
