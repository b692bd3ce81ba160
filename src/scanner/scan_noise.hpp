// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// The standard deviation of an image's noise by grey level.
class NoiseModel {
public:
  /// The same at every level.
  explicit NoiseModel(double noise);

  /// From the deviation of four phase images from a sinusoid, P0 - P1 + P2 - P3, at the decoded pixels of
  /// `map`.
  /// @throws Cancelled when the observer stops it
  NoiseModel(std::vector<cv::Mat> const& images, cv::Mat_<float> const& map, Progress const& progress);

  /// At the mean grey level of a pixel's phase images.
  float at(float level) const { return byLevel_[static_cast<std::size_t>(level) / levelsPerBin]; }

private:
  static constexpr std::size_t levelsPerBin = 16;
  static constexpr std::size_t binCount = 256 / levelsPerBin;

  std::array<float, binCount> byLevel_{};
};

/// The fringe amplitude of every pixel, grey levels.
cv::Mat_<float> modulationOf(std::vector<cv::Mat> const& images, Progress const& progress);

/// The standard deviation of every decoded coordinate, projector pixels; NaN where there is none.
/// @param period projector pixels of a fringe
cv::Mat_<float> sigmaOf(std::vector<cv::Mat> const& images, cv::Mat_<float> const& map,
                        NoiseModel const& noise, int period, Progress const& progress);

} // namespace vorn::mv
