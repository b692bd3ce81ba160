// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sl/decode/doubtful_growth.hpp"
#include "sl/unwrap/order_growth.hpp"
#include "tests/sl/decode_maps.hpp"

namespace vorn::mv::sl {
namespace {

/// A ramp whose left column is known.
ScanMaps ramp() {
  return mapsOf(
      {30, 6}, [](int x, int y) { return 20 + 0.4 * x + 0.1 * y; },
      [](int x, int) { return x == 0 ? pixel_state::trusted : pixel_state::open; });
}

TEST(OrderGrowth, GivesOrdersToAllThatIsOpen) {
  ScanMaps maps = ramp();
  growOrders({maps, CodeCheck(4), true}, Progress());
  for (int y = 0; y < 6; ++y) {
    for (int x = 1; x < 30; ++x) {
      ASSERT_EQ(maps.state.inner(y, x), pixel_state::grown);
      ASSERT_NEAR(maps.wrapped.inner(y, x) + 2 * pi * maps.order.inner(y, x), 20 + 0.4 * x + 0.1 * y, 1e-4);
    }
  }
}

TEST(OrderGrowth, NothingGrowsFromAPixelWhoseCodeImagesContradict) {
  ScanMaps maps = ramp();
  for (int y = 0; y < 6; ++y) {
    maps.reading.inner(y, 12) = static_cast<int>(0xFFU << certainShift);
  }
  growOrders({maps, CodeCheck(4), true}, Progress());
  EXPECT_EQ(cv::countNonZero(maps.state.inner == static_cast<int>(pixel_state::grown)), 6 * 11);
  EXPECT_EQ(maps.state.inner(3, 12), pixel_state::noCode);
  EXPECT_EQ(pixel_state::finalReason(maps.state.inner(3, 13)), pixel_state::noCode);
  ScanMaps unchecked = ramp();
  unchecked.reading.inner.setTo(static_cast<int>(0xFFU << certainShift));
  growOrders({unchecked, CodeCheck(4), false}, Progress());
  EXPECT_EQ(cv::countNonZero(unchecked.state.inner == static_cast<int>(pixel_state::grown)), 6 * 29);
}

TEST(DoubtfulGrowth, GoesWhereItTouchesAJumpAndStaysElsewhere) {
  // Two patches of grown pixels; beside one of them the surface jumps, on each of its sides in turn.
  for (cv::Point const jump : {cv::Point(4, 6), cv::Point(9, 6), cv::Point(6, 4), cv::Point(6, 9)}) {
    auto const isGrown = [](int x, int y) {
      return (x >= 5 && x < 9 && y >= 5 && y < 9) || (x >= 20 && x < 23 && y >= 5 && y < 9);
    };
    ScanMaps maps = mapsOf(
        {30, 15}, [&](int x, int y) { return 30 + 0.1 * x + (cv::Point(x, y) == jump ? 3.5 : 0); },
        [&](int x, int y) { return isGrown(x, y) ? pixel_state::grown : pixel_state::trusted; });
    dropDoubtfulGrowth(maps, Progress());
    EXPECT_EQ(
        cv::countNonZero(maps.state.inner(cv::Rect(5, 5, 4, 4)) == static_cast<int>(pixel_state::noCode)),
        16);
    EXPECT_EQ(cv::countNonZero(maps.state.inner == static_cast<int>(pixel_state::grown)), 12);
    EXPECT_EQ(maps.state.inner(jump), pixel_state::trusted);
  }
}

TEST(DoubtfulGrowth, GoesAsAWholeOverAllBands) {
  // Growth in random pieces, some of them over several bands of rows, and a few places where the phase jumps.
  cv::Size const size(60, 300);
  cv::RNG random(5);
  cv::Mat_<uchar> state(size);
  for (uchar& pixel : state) {
    pixel = random.uniform(0, 100) < 38 ? pixel_state::grown : pixel_state::trusted;
  }
  std::vector<cv::Point> const jumps{{10, 20}, {40, 126}, {20, 128}, {50, 200}, {30, 255}, {31, 299}};
  ScanMaps maps = mapsOf(
      size,
      [&](int x, int y) {
        return 30 + 0.01 * x +
               (std::find(jumps.begin(), jumps.end(), cv::Point(x, y)) != jumps.end() ? 4 : 0);
      },
      [&](int x, int y) { return state(y, x); });
  cv::Mat_<uchar> expected = state.clone();
  std::vector<cv::Point> open;
  auto const drop = [&](cv::Point p) {
    if (p.inside({{0, 0}, size}) && expected(p) == pixel_state::grown) {
      expected(p) = pixel_state::noCode;
      open.push_back(p);
    }
  };
  for (cv::Point const& jump : jumps) {
    for (cv::Point const& step : {cv::Point(0, 0), {1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
      drop(jump + step);
    }
  }
  while (!open.empty()) {
    cv::Point const p = open.back();
    open.pop_back();
    for (int k = 0; k < 9; ++k) {
      drop(p + cv::Point(k % 3 - 1, k / 3 - 1));
    }
  }
  dropDoubtfulGrowth(maps, Progress());
  EXPECT_EQ(cv::norm(maps.state.inner, expected, cv::NORM_L1), 0);
  EXPECT_GT(cv::countNonZero(expected == static_cast<int>(pixel_state::noCode)), 300);
  EXPECT_GT(cv::countNonZero(expected == static_cast<int>(pixel_state::grown)), 300);
}

} // namespace
} // namespace vorn::mv::sl
