// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <vorn/mv/sl/gray_code.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

#include "sl/coding/stripe_cells.hpp"
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
      : code_(first.code), cells_{first.cell, first.shift}, all_((1U << static_cast<unsigned>(bits)) - 1U) {}

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
      return {CodePlace::Stripe, static_cast<float>(cells_.middle(stripe)), 0.0F};
    }
    int const other = stripeOf(word ^ (1U << weakest));
    if (other == stripe + 1) {
      return {CodePlace::Border, edge(other), -1.0F};
    }
    return other == stripe - 1 ? CodePlace{CodePlace::Border, edge(stripe), 1.0F}
                               : CodePlace{CodePlace::Unknown, 0.0F, 0.0F};
  }

  /// The mean width of stripes, projector pixels.
  float cell() const { return static_cast<float>(cells_.cell); }

  /// What it is made of, for loops.
  struct Stripes {
    BitCode code;
    std::uint32_t flipped; ///< of `BitCode::Xor`, the bits that the lowest one turns
    double cell, shift;    ///< projector pixels
    StripeCells cells() const { return {cell, shift}; }
  };
  Stripes stripes() const { return {code_, all_ & ~1U, cells_.cell, cells_.shift}; }

  /// Where a stripe begins, projector pixels.
  float edge(int stripe) const { return static_cast<float>(cells_.edge(stripe)); }

private:
  BitCode code_;
  StripeCells cells_;
  std::uint32_t all_;
};

} // namespace vorn::mv::sl
