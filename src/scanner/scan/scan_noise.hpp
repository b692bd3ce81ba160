// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"
#include "sl/decode/grey_stack.hpp"

namespace vorn::mv {

/// The standard deviation of an image's noise by grey level.
class NoiseModel {
public:
  /// The same at every level.
  /// @param noise in the levels of the images that were given
  NoiseModel(double noise, sl::GreyStack const& stack);

  /// From the deviation of four phase images from a sinusoid, P0 - P1 + P2 - P3, at the decoded pixels of
  /// `map`.
  /// @throws Cancelled when the observer stops it
  NoiseModel(sl::GreyStack const& stack, cv::Mat_<float> const& map, Progress const& progress);

  /// At the mean level of a pixel's phase images, both in the stack's levels.
  float at(float level) const { return byLevel_[binOf(level)]; }

private:
  static constexpr std::size_t binCount = 16;

  static float binsPerLevel(sl::GreyStack const& stack) {
    constexpr double greyPerBin = 256.0 / binCount;
    return static_cast<float>(1.0 / (greyPerBin * stack.perGrey()));
  }
  std::size_t binOf(float level) const {
    return std::min(static_cast<std::size_t>(level * binsPerLevel_), binCount - 1);
  }

  float binsPerLevel_;
  std::array<float, binCount> byLevel_{};
};

/// The fringe amplitude of every pixel, in the levels of the images that were given.
cv::Mat_<float> modulationOf(sl::GreyStack const& stack, Progress const& progress);

/// The standard deviation of every decoded coordinate, projector pixels; NaN where there is none.
/// @param period projector pixels of a fringe
cv::Mat_<float> sigmaOf(sl::GreyStack const& stack, cv::Mat_<float> const& map, NoiseModel const& noise,
                        int period, Progress const& progress);

} // namespace vorn::mv
