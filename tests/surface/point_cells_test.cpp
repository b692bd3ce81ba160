// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/fusion/point_cells.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/point_sets.hpp"

namespace vorn::mv {
namespace {

TEST(PointCells, HoldWhatIsNearHoweverFarOtherPointsLie) {
  std::vector<cv::Vec3f> const near = test::randomPoints(1500, -1.0F, 1.0F);
  constexpr float size = 0.2F;
  for (float const distance : {0.0F, 1e5F, -1e5F, 1e7F, -1e7F, 1e12F, -1e30F, 1e38F}) {
    std::vector<cv::Vec3f> points = near;
    for (int axis = 0; distance != 0.0F && axis < 4; ++axis) {
      cv::Vec3f far = cv::Vec3f::all(axis == 3 ? -distance : 0.0F);
      far[axis % 3] = distance;
      points.push_back(far);
    }
    PointCells const cells(points, size);
    EXPECT_EQ(cells.size(), size) << distance;
    EXPECT_EQ(cells.order().size(), points.size());
    std::vector<bool> isListed(points.size());
    std::size_t missed = 0;
    std::size_t strange = 0;
    for (std::uint32_t cell = 0; cell < cells.cellCount(); ++cell) {
      std::vector<std::uint32_t> listed;
      for (PointCells::Range const& row : cells.around(cell)) {
        PointCells::Range const range = cells.pointsOf(row);
        listed.insert(listed.end(), cells.order().begin() + range.first, cells.order().begin() + range.end);
      }
      std::sort(listed.begin(), listed.end());
      EXPECT_TRUE(std::adjacent_find(listed.begin(), listed.end()) == listed.end());
      PointCells::Range const own = cells.pointsOf(cell);
      EXPECT_TRUE(std::is_sorted(cells.order().begin() + own.first, cells.order().begin() + own.end));
      for (std::uint32_t i = own.first; i < own.end; ++i) {
        isListed[cells.order()[i]] = true;
        cv::Vec3d const point(points[cells.order()[i]]);
        for (std::uint32_t other = 0; other < points.size(); ++other) {
          cv::Vec3d const apart = cv::Vec3d(points[other]) - point;
          double const side = std::max({std::abs(apart[0]), std::abs(apart[1]), std::abs(apart[2])});
          bool const isFound = std::binary_search(listed.begin(), listed.end(), other);
          missed += !isFound && side < 0.999 * static_cast<double>(size) ? 1 : 0;
          strange += isFound && side > 2.001 * static_cast<double>(size) ? 1 : 0;
        }
      }
    }
    EXPECT_EQ(missed, 0U) << distance;
    EXPECT_EQ(strange, 0U) << distance;
    EXPECT_EQ(std::count(isListed.begin(), isListed.end(), false), 0) << distance;
  }
}

} // namespace
} // namespace vorn::mv
