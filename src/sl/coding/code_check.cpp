// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/coding/code_check.hpp"

#include <cstddef>
#include <cstdlib>

#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

namespace {

/// Part of a stripe beside its border in which the images that change there are not held against a pixel.
constexpr float besideBorder = 0.2F;

} // namespace

bool CodeCheck::fit(cv::Point pixel, float absolutePhase, float magnitude) const {
  int sum = 0;
  for (cv::Mat const& image : phaseImages_) {
    sum += image.ptr(pixel.y)[pixel.x];
  }
  int const middle = sum / 4;
  auto const uncertainTo = static_cast<int>(certainPartOfMagnitude * magnitude);
  unsigned bits = 0;
  unsigned certain = 0;
  for (std::size_t k = 0; k < codeImages_.size(); ++k) {
    int const value = codeImages_[k].ptr(pixel.y)[pixel.x];
    bits |= static_cast<unsigned>(value > middle) << k;
    certain |= static_cast<unsigned>(std::abs(value - middle) > uncertainTo) << k;
  }
  // Beside a border the images that change there may be at any stage of it, each at its own by noise.
  float const place =
      (absolutePhase - border_) * (1.0F / twoPi) + 1.0F; // not negative, so truncation is floor
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
