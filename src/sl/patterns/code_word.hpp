// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <vorn/mv/sl/gray_code.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

/// Where the bits of a pixel say that it is.
struct CodePlace {
  enum Kind {
    Stripe, ///< all bits are certain: `position` is the middle of a stripe
    Border, ///< one is not, and the two stripes are neighbours: `position` is the border between them
    Unknown
  };
  Kind kind;
  float position; ///< projector pixels
  float towards;  ///< of `Border`: on which side of it the pixel's own bits are, -1 or 1
};

/// Reads the numbers of stripes from words.
class CodeWord {
public:
  /// @param first any bit of the code
  CodeWord(PatternImage const& first, int bits)
      : code_(first.code), cell_(static_cast<float>(first.cell)), shift_(static_cast<float>(first.shift)),
        all_((1U << static_cast<unsigned>(bits)) - 1U) {}

  int stripeOf(std::uint32_t word) const {
    switch (code_) {
    case BitCode::Gray:
      return static_cast<int>(gray2Bin(word));
    case BitCode::Xor:
      return static_cast<int>((word & 1U) != 0 ? word ^ (all_ & ~1U) : word) - StripeCode::wordOffset;
    case BitCode::Binary:
      break;
    }
    return static_cast<int>(word);
  }

  /// @param isCertain whether the weakest bit is, and all others
  CodePlace place(std::uint32_t word, unsigned weakest, bool isCertain, bool areOthersCertain) const {
    int const stripe = stripeOf(word);
    if (!areOthersCertain || stripe < 0) {
      return {CodePlace::Unknown, 0.0F, 0.0F};
    }
    if (isCertain) {
      return {CodePlace::Stripe, edge(stripe) + 0.5F * cell_, 0.0F};
    }
    int const other = stripeOf(word ^ (1U << weakest));
    if (other == stripe + 1) {
      return {CodePlace::Border, edge(other), -1.0F};
    }
    return other == stripe - 1 ? CodePlace{CodePlace::Border, edge(stripe), 1.0F}
                               : CodePlace{CodePlace::Unknown, 0.0F, 0.0F};
  }

  float cell() const { return cell_; }

  /// What it is made of, for loops.
  struct Stripes {
    BitCode code;
    std::uint32_t flipped; ///< of `BitCode::Xor`, the bits that the lowest one turns
    float cell, shift;     ///< projector pixels
  };
  Stripes stripes() const { return {code_, all_ & ~1U, cell_, shift_}; }

  /// Where a stripe begins: half a pixel before the centre of its first one.
  float edge(int stripe) const { return static_cast<float>(stripe) * cell_ - shift_ - 0.5F; }

private:
  BitCode code_;
  float cell_;
  float shift_;
  std::uint32_t all_;
};

} // namespace vorn::mv::sl
