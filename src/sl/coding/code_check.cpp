// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/coding/code_check.hpp"

#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

namespace {

/// Part of a stripe beside its border in which the images that change there are not held against a pixel.
constexpr float besideBorder = 0.2F;

} // namespace

bool CodeCheck::fits(CodeReading reading, float absolutePhase) const {
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
  unsigned changing = 0;
  if (part < besideBorder) {
    changing = StripeCode::shownWord(stripe) ^ StripeCode::shownWord(stripe - 1);
  } else if (part > 1.0F - besideBorder) {
    changing = StripeCode::shownWord(stripe) ^ StripeCode::shownWord(stripe + 1);
  }
  return ((bits ^ StripeCode::shownWord(stripe)) & certain & ~changing) == 0;
}

} // namespace vorn::mv::sl
