// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_origin.hpp"

#include <opencv2/core.hpp>

#include <gtest/gtest.h>

namespace vorn::mv {
namespace {

TEST(DotOrigin, DotsTooFarFromTheMarkersHaveNoPlace) {
  // A perforated sheet on which the grid grew as far as it can from its middle, three larger holes at one
  // end.
  constexpr double pitch = 12;
  constexpr double area = 28;
  constexpr double markerArea = 2.25 * area;
  constexpr int reach = GridIndex::reach;
  cv::Point const corner(-1, -reach);
  std::vector<DotCandidate> candidates;
  std::vector<GridDot> dots;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -2; x <= 2; ++x) {
      cv::Point const fromCorner = cv::Point(x, y) - corner;
      bool const isMarker = fromCorner.x >= 0 && fromCorner.y >= 0 && fromCorner.x + fromCorner.y <= 1;
      dots.push_back({static_cast<int>(candidates.size()), {x, y}});
      candidates.push_back({{pitch * (x + 2), pitch * (y + reach)},
                            isMarker ? markerArea : area,
                            cv::Matx22d::eye(),
                            cv::Matx22d::eye()});
    }
  }
  auto const grid = settleOrigin(cv::Mat::zeros(8, 8, CV_8U), RawGrid(candidates, dots), {});
  ASSERT_TRUE(grid);
  EXPECT_TRUE(grid->isOriginMarked);
  EXPECT_EQ(grid->dots.size(), 5U * (reach + 1));
  for (GridDot const& dot : grid->dots) {
    EXPECT_TRUE(GridIndex::contains(dot.index)) << dot.index;
  }
}

} // namespace
} // namespace vorn::mv
