// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "tools/report/deviation_scale.hpp"
#include "tools/report/page_cloud.hpp"

namespace vorn::tools {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// Noise of 0.05, with one in fifty far off, and some without a place.
std::vector<float> noisy() {
  std::mt19937 random(3);
  std::normal_distribution<float> noise(0.0F, 0.05F);
  std::vector<float> values;
  for (int i = 0; i < 10000; ++i) {
    values.push_back(i % 50 == 0 ? 1.3F : i % 7 == 0 ? nan : noise(random));
  }
  return values;
}

TEST(DeviationScale, ShowsTheBulkAndCountsWhatLiesBeyond) {
  double const reach = deviationReach(noisy());
  EXPECT_NEAR(reach, 0.15, 0.01);
  std::size_t const beyond = countBeyond(noisy(), -reach, reach);
  // One in fifty, and of the others what three sigma leave out: 0.27 %.
  EXPECT_NEAR(static_cast<double>(beyond), 200.0 + 0.0027 * 8400.0, 15.0);
  EXPECT_EQ(beyondInWords(214, 8600), "2.5 % lie beyond");
  EXPECT_EQ(beyondInWords(3, 8600), "3 lie beyond");
  EXPECT_EQ(beyondInWords(0, 8600), "");
}

TEST(DeviationScale, IsNeverEmptyAndNoWiderThanTheValues) {
  EXPECT_EQ(deviationReach({}), 1.0);
  EXPECT_EQ(deviationReach({nan, 0.0F, 0.0F}), 1.0);
  EXPECT_EQ(deviationReach({0.0F, 0.0F, 0.0F, -0.25F}), 0.25) << "half of them nought";
  EXPECT_EQ(deviationReach({-2.0F, 2.0F, 1.75F}), 2.0);
}

TEST(DeviationScale, IsThatOfAPagesDeviationsUnlessARangeIsGiven) {
  PageCloud cloud;
  cloud.fields.push_back({"deviation", "mm", noisy(), true});
  for (std::size_t i = 0; i < cloud.fields[0].values.size(); ++i) {
    cloud.points.emplace_back(static_cast<float>(i), 0.0F, 0.0F);
  }
  auto const range = packed(cloud, cloud.points.size()).description["fields"][0]["range"];
  EXPECT_NEAR(range[0].get<double>(), -0.15, 0.01);
  EXPECT_EQ(range[1].get<double>(), -range[0].get<double>());
  cloud.fields[0].range = {-0.5, 0.75};
  auto const given = packed(cloud, cloud.points.size()).description["fields"][0]["range"];
  EXPECT_EQ(given[0], -0.5);
  EXPECT_EQ(given[1], 0.75);
}

} // namespace
} // namespace vorn::tools
