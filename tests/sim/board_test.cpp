// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/board.hpp"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

namespace vorn::sim {
namespace {

/// The dark share of a patch by 200 x 200 points in it.
double sampledShare(std::vector<cv::Rect2d> const& parts, cv::Vec2d const& uv, cv::Vec2d const& du,
                    cv::Vec2d const& dv) {
  constexpr int samples = 200;
  int dark = 0;
  for (int j = 0; j < samples; ++j) {
    for (int i = 0; i < samples; ++i) {
      cv::Vec2d const at = uv + ((i + 0.5) / samples - 0.5) * du + ((j + 0.5) / samples - 0.5) * dv;
      bool const isDark = std::any_of(parts.begin(), parts.end(),
                                      [&](cv::Rect2d const& part) { return part.contains(cv::Point2d(at)); });
      dark += isDark ? 1 : 0;
    }
  }
  return static_cast<double>(dark) / (samples * samples);
}

TEST(Board, SharesOfPatchesAreThoseOfManyPoints) {
  constexpr double side = 15;
  std::vector<cv::Rect2d> parts = chessboardParts({4, 3}, side);
  EXPECT_EQ(parts.size(), 10U) << "of 5 x 4 squares";
  parts.emplace_back(18, 3, 2.5, 2.5); // a part of a marker in a white square
  Board const board(parts, 0.1, side);
  cv::RNG rng(5);
  for (int i = 0; i < 300; ++i) {
    // About edges and corners, by patches turned any way; far from them nothing is to be seen.
    cv::Vec2d const corner(side * rng.uniform(-1, 5), side * rng.uniform(-1, 4));
    cv::Vec2d const near = i % 3 == 0 ? cv::Vec2d(18, 3) : corner;
    cv::Vec2d const uv = near + cv::Vec2d(rng.uniform(-0.8, 0.8), rng.uniform(-0.8, 0.8));
    cv::Vec2d const du(rng.uniform(-0.6, 0.6), rng.uniform(-0.6, 0.6));
    cv::Vec2d const dv(rng.uniform(-0.6, 0.6), rng.uniform(-0.6, 0.6));
    if (std::abs(du[0] * dv[1] - du[1] * dv[0]) < 0.05) {
      continue; // no patch
    }
    EXPECT_NEAR(board.darkShare(uv, du, dv), sampledShare(parts, uv, du, dv), 0.012) << uv << du << dv;
  }
}

} // namespace
} // namespace vorn::sim
