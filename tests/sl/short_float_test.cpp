// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/short_float.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace vorn::mv::sl {
namespace {

TEST(ShortFloat, KeepsOrderAndAPartInFourThousandOrNothing) {
  ShortFloat last = 0;
  for (double exponent = -23.9; exponent < 39.9; exponent += 0.0007) {
    auto const value = static_cast<float>(std::exp2(exponent));
    ShortFloat const kept = toShortFloat(value);
    ASSERT_NEAR(fromShortFloat(kept) / value, 1.0F, 1.0F / 2000) << value;
    ASSERT_GE(kept, last) << value;
    last = kept;
  }
  for (float const none : {0.0F, -0.0F, -1e-30F, -5.0F, -std::numeric_limits<float>::infinity(),
                           std::numeric_limits<float>::quiet_NaN()}) {
    EXPECT_EQ(toShortFloat(none), 0) << none;
  }
  EXPECT_EQ(fromShortFloat(0), 0.0F);
  // Beyond the ends: the least that is more than nothing, and the most that there is.
  EXPECT_GT(fromShortFloat(toShortFloat(1e-30F)), 0.0F);
  EXPECT_LT(fromShortFloat(toShortFloat(1e-30F)), 1e-7F);
  EXPECT_EQ(toShortFloat(std::numeric_limits<float>::max()), std::numeric_limits<ShortFloat>::max());
}

} // namespace
} // namespace vorn::mv::sl
