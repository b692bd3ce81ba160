// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/mesh_input.hpp"

#include <cmath>

#include <gtest/gtest.h>

namespace vorn::tools {
namespace {

// The needles of a thin rod took 100 million points and more.
TEST(SurfacePoints, ThinRodsTakeAMillionAtMost) {
  constexpr int facets = 1000;
  constexpr float radius = 0.5F;
  constexpr float length = 1000;
  CloudInput input;
  for (int i = 0; i < facets; ++i) {
    float const angle = static_cast<float>(2 * CV_PI * i / facets);
    for (float const z : {0.0F, length}) {
      input.object.vertices().emplace_back(radius * std::cos(angle), radius * std::sin(angle), z);
    }
    int const next = (i + 1) % facets;
    input.object.triangles().emplace_back(2 * i, 2 * next, 2 * next + 1);
    input.object.triangles().emplace_back(2 * i, 2 * next + 1, 2 * i + 1);
  }
  mv::PointCloud const cloud = surfacePointsOf(input);
  EXPECT_GT(cloud.points().total(), 300'000U);
  EXPECT_LE(cloud.points().total(), 1'000'000U);
}

} // namespace
} // namespace vorn::tools
