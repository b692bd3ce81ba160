// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv::sl {

constexpr float twoPi = 6.2831853F;

/// A code image counts as certain when it lies at least so far from the middle between bright and dark, in
/// parts of twice the fringe amplitude: 0.4 amplitudes.
constexpr float certainPartOfMagnitude = 0.2F;

/// The phase at which the code changes: half a projector pixel before the phase wraps.
inline float codeBorder(int period) {
  return twoPi * (1.0F - 0.5F / static_cast<float>(period));
}

/// Checks absolute phases against the code images of their pixels.
class CodeCheck {
public:
  CodeCheck(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages, int period)
      : phaseImages_(phaseImages), codeImages_(codeImages), border_(codeBorder(period)) {}

  /// Whether the certain ones of the pixel's code images show the stripe of its place, leaving out those that
  /// change at a border nearby.
  /// @param absolutePhase not negative
  /// @param magnitude twice the fringe amplitude
  bool fit(cv::Point pixel, float absolutePhase, float magnitude) const;

private:
  std::vector<cv::Mat> const& phaseImages_;
  std::vector<cv::Mat> const& codeImages_;
  float border_;
};

} // namespace vorn::mv::sl
