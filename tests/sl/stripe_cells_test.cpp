// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/coding/stripe_cells.hpp"

#include <cmath>

#include <gtest/gtest.h>

namespace vorn::mv::sl {
namespace {

/// Every width is held against what whole pixels show, one by one. Widths such as 2.3 have multiples that are
/// rounded to the other side of a whole number.
TEST(StripeCells, BeginWhereTheirFirstPixelBegins) {
  for (double const cell : {0.5, 0.7, 1.0, 1.1, 1.5, 2.3, 2.5, 4.5, 5.25, 8.0, 1024.0 / 3.0}) {
    for (double const shift : {0.0, 0.3, 1.0, 2.5, 17.9}) {
      StripeCells const cells{cell, shift};
      constexpr int pixels = 3000;
      int first = 0; // pixel of the stripe
      for (int pixel = 1; pixel < pixels; ++pixel) {
        auto const before = static_cast<int>(std::floor((pixel - 1 + shift) / cell));
        auto const stripe = static_cast<int>(std::floor((pixel + shift) / cell));
        if (stripe == before) {
          continue;
        }
        for (int next = before + 1; next <= stripe; ++next) { // too narrow ones are nowhere
          ASSERT_EQ(cells.edge(next), pixel - 0.5) << cell << " shift " << shift << " stripe " << next;
        }
        if (first > 0) {
          ASSERT_EQ(cells.middle(before), 0.5 * (first + pixel - 1)) << cell << " shift " << shift;
        }
        ASSERT_EQ(cells.stripeOf(pixel), stripe);
        first = pixel;
      }
    }
  }
}

} // namespace
} // namespace vorn::mv::sl
