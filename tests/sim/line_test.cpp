// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <set>

#include <gtest/gtest.h>

#include "sim/line.hpp"

namespace vorn::sim {
namespace {

/// Depths of the scene along rays parallel to the optical axis, on a grid of 1 mm.
std::vector<double> depths(Scene const& scene) {
  std::vector<double> result;
  for (int y = -70; y <= 70; ++y) {
    for (int x = -90; x <= 90; ++x) {
      SurfacePoint point;
      if (scene.trace({{x + 0.5, y + 0.5, 0}, {0, 0, 1}}, point)) {
        result.push_back(point.x_in_world[2]);
      }
    }
  }
  return result;
}

TEST(Line, BossStandsAboveThePlateByItsHeight) {
  for (double const height : {8.5, 20.0, 21.5}) {
    LinePart part;
    part.bossHeight = height;
    part.turn = 0.7;
    part.shift = {1.2, -0.9};
    std::vector<double> const z = depths(lineScene(part));
    auto const [top, ground] = std::minmax_element(z.begin(), z.end());
    EXPECT_NEAR(*ground - *top, height, 1e-9);
    // Plate, block and boss are the only levels, and parallel to the image.
    std::set<long> levels;
    for (double const depth : z) {
      levels.insert(std::lround(depth * 1e6));
    }
    EXPECT_EQ(levels.size(), 3U);
    // The plate's area, sampled: exact but for its border.
    EXPECT_NEAR(static_cast<double>(z.size()), 150 * 110, 2 * (150 + 110));
  }
}

TEST(Line, DriftsWithTwoFaultyParts) {
  for (int const count : {10, 50, 333}) {
    std::vector<LinePart> const parts = lineParts(count);
    ASSERT_EQ(parts.size(), static_cast<std::size_t>(count));
    std::multiset<LineFault> faults;
    for (int i = 0; i < count; ++i) {
      // 1.5 mm from end to end; the scatter of 0.03 mm stays below five sigma.
      EXPECT_NEAR(parts[i].bossHeight, 20 + 1.5 * i / (count - 1), 0.15) << i;
      faults.insert(parts[i].fault);
    }
    EXPECT_EQ(faults.count(LineFault::BossMissing), 1U);
    EXPECT_EQ(faults.count(LineFault::Stained), 1U);
    EXPECT_EQ(linePartsJson(parts), linePartsJson(lineParts(count)));
  }
  EXPECT_EQ(lineParts(1).at(0).fault, LineFault::None);
}

TEST(Line, FaultsAreSeen) {
  LinePart part;
  part.fault = LineFault::BossMissing;
  std::vector<double> const z = depths(lineScene(part));
  auto const [top, ground] = std::minmax_element(z.begin(), z.end());
  EXPECT_NEAR(*ground - *top, 8, 1e-9); // the block's height is left

  part.fault = LineFault::Stained;
  Scene const stained = lineScene(part);
  for (Object const& object : stained.objects()) {
    EXPECT_EQ(object.material.albedo < 0.1, object.name != "boss") << object.name;
  }
}

} // namespace
} // namespace vorn::sim
