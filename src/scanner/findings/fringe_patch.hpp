// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "sl/coding/stripe_code.hpp"
#include "sl/decode/grey_stack.hpp"

namespace vorn::mv {

/// A patch of an image in grey values of 255.
/// @param white the image's level that is 255
cv::Mat_<float> patchOf(cv::Mat const& image, cv::Rect const& patch, double white);

/// The share of a patch's pixels at the upper end of the range.
double shareClipped(cv::Mat_<float> const& patch);

/// Amplitude and phase of a fringe and what its four images hold beside, of pixels that tell them.
struct FringeSample {
  cv::Point place;
  double amplitude = 0;
  double mean = 0;
  double beside = 0; ///< (P0 - P1 + P2 - P3) / 4
  double cos1 = 0;   ///< of the phase
  double sin1 = 0;
  double cos2 = 0; ///< of twice the phase
  double sin2 = 0;
};

/// The fringes of one patch.
struct FringePatch {
  std::array<cv::Mat_<float>, sl::StripeCode::phaseImages> images;
  cv::Mat_<float> amplitude;
  /// Pixels well within the lit parts.
  cv::Mat_<std::uint8_t> isInner;

  FringePatch(sl::GreyStack const& sequence, cv::Rect const& patch);

  FringeSample sampleAt(int y, int x) const;
  /// The patch under full light: mean and amplitude of the fringes together.
  cv::Mat_<float> fullLight() const;
  /// The patch in the fringes' mean light, of the first and third image or of the second and fourth: what
  /// moves is seen one image later in those.
  cv::Mat_<float> meanOfPair(std::size_t first) const;
};

} // namespace vorn::mv
