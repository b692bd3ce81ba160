// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/ticks.hpp"

#include <cmath>
#include <string>

#include <gtest/gtest.h>

namespace vorn::mv {
namespace {

TEST(Ticks, LabelsTellTheirValues) {
  struct Range {
    double low, high;
  };
  for (Range const& range : {Range{4649776.1, 4649776.3}, Range{1000000.1, 1000000.9}, Range{-1e9, -1e9 + 1},
                             Range{-5e6, 5e6}, Range{0, 3e-7}, Range{2.5e-6, 2.6e-6}, Range{0.1, 0.9}}) {
    Ticks const ticks = ticksOf(range.low, range.high, 6);
    ASSERT_GE(ticks.values.size(), 2U);
    double const step = ticks.values[1] - ticks.values[0];
    for (std::size_t i = 0; i < ticks.values.size(); ++i) {
      EXPECT_NEAR(std::stod(ticks.labels[i]), ticks.values[i], 0.01 * step) << ticks.labels[i];
      EXPECT_LT(ticks.labels[i].size(), 14U) << ticks.labels[i];
    }
  }
}

} // namespace
} // namespace vorn::mv
