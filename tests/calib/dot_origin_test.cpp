// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_origin.hpp"

#include <array>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

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
  auto const readings = settleOrigin(cv::Mat::zeros(8, 8, CV_8U), RawGrid(candidates, dots), {});
  ASSERT_FALSE(readings.empty());
  DotGrid const& marked = readings.front();
  EXPECT_TRUE(marked.isOriginMarked);
  EXPECT_EQ(marked.dots.size(), 5U * (reach + 1));
  for (GridDot const& dot : marked.dots) {
    EXPECT_TRUE(GridIndex::contains(dot.index)) << dot.index;
  }
}

TEST(DotOrigin, MarkersStandAmongDotsOnly) {
  // A diamond of dots: the box around it along its axes has corners without any.
  constexpr int pitch = 40;
  constexpr int reach = 4;
  auto const place = [](cv::Point const& index) {
    return cv::Point((index.x + reach + 1) * pitch, (index.y + reach + 1) * pitch);
  };
  cv::Mat image((2 * reach + 3) * pitch, (2 * reach + 3) * pitch, CV_8U, cv::Scalar(40));
  std::vector<DotCandidate> candidates;
  std::vector<GridDot> dots;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x <= reach; ++x) {
      if (std::abs(x) + std::abs(y) <= reach) {
        dots.push_back({static_cast<int>(candidates.size()), {x, y}});
        candidates.push_back({place({x, y}), CV_PI * 100, cv::Matx22d::eye(), cv::Matx22d::eye()});
        cv::circle(image, place({x, y}), 10, cv::Scalar(200), cv::FILLED);
      }
    }
  }
  RawGrid const grid(candidates, dots);
  std::array<cv::Point, 3> const outside = {cv::Point(-4, -4), cv::Point(-3, -4), cv::Point(-4, -3)};
  for (cv::Point const& index : outside) {
    cv::circle(image, place(index), 15, cv::Scalar(200), cv::FILLED);
  }
  auto const readings = settleOrigin(image, grid, {});
  ASSERT_EQ(readings.size(), 1U);
  EXPECT_FALSE(readings.front().isOriginMarked);
  EXPECT_EQ(readings.front().dots.size(), dots.size());
  // Three as bright ones in its middle are markers, whatever the sizes of their blobs.
  for (cv::Point const& index : outside) {
    cv::circle(image, place(index + cv::Point(4, 4)), 15, cv::Scalar(200), cv::FILLED);
  }
  EXPECT_TRUE(settleOrigin(image, grid, {}).front().isOriginMarked);
}

} // namespace
} // namespace vorn::mv
