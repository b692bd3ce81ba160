// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <opencv2/core/hal/intrin.hpp>

#include "core/pi.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

/// A code image counts as certain when it lies at least so far from the middle between bright and dark, in
/// parts of twice the fringe amplitude: 0.4 amplitudes.
constexpr float certainPartOfMagnitude = 0.2F;

/// The phase at which the code changes: half a projector pixel before the phase wraps.
inline float codeBorder(int period) {
  return twoPiFloat * (1.0F - 0.5F / static_cast<float>(period));
}

/// What the code images of a pixel show: bit k of the lower half tells whether image k is brighter than the
/// middle of the pixel's fringes, bit k of the upper half whether it is far enough from it to be certain.
using CodeReading = std::uint32_t;
constexpr unsigned certainShift = 16;

/// Checks absolute phases against what the code images of their pixels show.
class CodeCheck {
public:
  explicit CodeCheck(int period) : border_(codeBorder(period)) {}

  /// Whether the certain ones of the pixel's code images show the stripe of its place, leaving out those that
  /// change at a border nearby. A negative place fits nothing.
  bool fits(CodeReading reading, float absolutePhase) const;

  /// The same of four pixels at once: -1 where it fits, else 0.
  cv::v_int32x4 fits(cv::v_int32x4 const& readings, cv::v_float32x4 const& absolutePhases) const;

private:
  /// Part of a stripe beside its border in which the images that change there are not held against a pixel.
  static constexpr float besideBorder = 0.2F;

  float border_;
};

// Inline: growth and bridging ask for every pixel.
inline bool CodeCheck::fits(CodeReading reading, float absolutePhase) const {
  if (!(absolutePhase >= 0.0F)) {
    return false;
  }
  unsigned const bits = reading & ((1U << certainShift) - 1U);
  unsigned const certain = reading >> certainShift;
  // Beside a border the images that change there may be at any stage of it, each at its own by noise.
  float const place =
      (absolutePhase - border_) * (1.0F / twoPiFloat) + 1.0F; // not negative, so truncation is floor
  int const stripe = static_cast<int>(place);
  float const part = place - static_cast<float>(stripe);
  int const beside = stripe + (part > 1.0F - besideBorder ? 1 : 0) - (part < besideBorder ? 1 : 0);
  unsigned const changing = StripeCode::shownWord(stripe) ^ StripeCode::shownWord(beside);
  return ((bits ^ StripeCode::shownWord(stripe)) & certain & ~changing) == 0;
}

inline cv::v_int32x4 CodeCheck::fits(cv::v_int32x4 const& readings,
                                     cv::v_float32x4 const& absolutePhases) const {
  auto const of = [](float value) { return cv::v_setall_f32(value); };
  auto const shownWords = [](cv::v_int32x4 const& stripes) {
    cv::v_int32x4 const words = stripes + cv::v_setall_s32(StripeCode::wordOffset);
    cv::v_int32x4 const reference = words & cv::v_setall_s32(1);
    return words ^ (cv::v_setall_s32(~1) & (cv::v_setzero_s32() - reference));
  };
  cv::v_float32x4 const place = (absolutePhases - of(border_)) * of(1.0F / twoPiFloat) + of(1.0F);
  cv::v_int32x4 const stripes = cv::v_trunc(place);
  cv::v_float32x4 const part = place - cv::v_cvt_f32(stripes);
  // Comparisons give -1 where they hold.
  cv::v_int32x4 const beside = stripes + cv::v_reinterpret_as_s32(part < of(besideBorder)) -
                               cv::v_reinterpret_as_s32(part > of(1.0F - besideBorder));
  cv::v_int32x4 const shown = shownWords(stripes);
  cv::v_int32x4 const changing = shown ^ shownWords(beside);
  cv::v_int32x4 const certain =
      cv::v_reinterpret_as_s32(cv::v_reinterpret_as_u32(readings) >> static_cast<int>(certainShift));
  cv::v_int32x4 const contradicting = (readings ^ shown) & certain & ~changing;
  return (contradicting == cv::v_setzero_s32()) &
         cv::v_reinterpret_as_s32(absolutePhases >= cv::v_setzero_f32());
}

} // namespace vorn::mv::sl
