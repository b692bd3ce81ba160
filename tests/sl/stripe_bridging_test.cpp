// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sl/decode/stripe_bridging.hpp"
#include "tests/sl/decode_maps.hpp"

namespace vorn::mv::sl {
namespace {

/// A row or a column over the border of two stripes, five of its pixels open.
struct Bridge {
  static constexpr int length = 20;
  bool isColumn;
  ScanMaps maps;

  explicit Bridge(bool isColumn_, std::function<double(int)> const& absolute) : isColumn(isColumn_) {
    cv::Size const size = isColumn ? cv::Size(1, length) : cv::Size(length, 1);
    maps = mapsOf(
        size, [&](int x, int y) { return absolute(x + y); },
        [](int x, int y) { return x + y >= 8 && x + y < 13 ? pixel_state::open : pixel_state::trusted; });
  }
  uchar& state(int i) { return isColumn ? maps.state.inner(i, 0) : maps.state.inner(0, i); }
  int& reading(int i) { return isColumn ? maps.reading.inner(i, 0) : maps.reading.inner(0, i); }
  double phase(int i) {
    cv::Point const p = isColumn ? cv::Point(0, i) : cv::Point(i, 0);
    return maps.wrapped.inner(p) + 2 * pi * maps.order.inner(p);
  }
  /// How many of the open pixels got an order.
  int run(int reach = 16) {
    ScanDecodingSettings const settings = smallProjector();
    StripeBridging bridging(settings, StripeSpacing(settings.period), reach, maps);
    isColumn ? bridging.alongColumns(0) : bridging.alongRow(0);
    return cv::countNonZero(maps.state.inner == static_cast<int>(pixel_state::bridged));
  }
};

// The border between stripes 1 and 2 is at 3.5 of 4 pixels of period 1.
double overTheBorder(int i) {
  return 2 * pi * 1.875 + 0.5 * (i - 10);
}

TEST(StripeBridging, FollowsThePhaseOverABorder) {
  for (bool const isColumn : {false, true}) {
    Bridge bridge(isColumn, overTheBorder);
    EXPECT_EQ(bridge.run(), 5);
    for (int i = 0; i < Bridge::length; ++i) {
      EXPECT_NEAR(bridge.phase(i), overTheBorder(i), 1e-5) << i;
    }
    Bridge narrow(isColumn, overTheBorder);
    EXPECT_EQ(narrow.run(5), 0); // from known pixel to known pixel it is six
  }
}

TEST(StripeBridging, StopsAtStepsAtClosedPixelsAndWithinAStripe) {
  for (bool const isColumn : {false, true}) {
    Bridge step(isColumn, [](int i) { return overTheBorder(i) + (i > 10 ? 2 * pi : 0); });
    EXPECT_EQ(step.run(), 0) << "one period more beyond the border: the phase arrives with another order";
    Bridge steep(isColumn, [](int i) { return overTheBorder(i) + (i > 10 ? 0.45 * 2 * pi : 0); });
    EXPECT_EQ(steep.run(), 0);
    Bridge closed(isColumn, overTheBorder);
    closed.state(10) = pixel_state::dark;
    EXPECT_EQ(closed.run(), 0);
    Bridge within(isColumn, [](int i) { return 2 * pi * 1.3 + 0.1 * (i - 10); });
    EXPECT_EQ(within.run(), 0);
  }
}

TEST(StripeBridging, ClosesWhatItsOwnCodeImagesContradict) {
  for (bool const isColumn : {false, true}) {
    Bridge bridge(isColumn, overTheBorder);
    // All images certain, and dark: the word of no stripe.
    bridge.reading(9) = static_cast<int>(0xFFU << certainShift);
    EXPECT_EQ(bridge.run(), 4);
    EXPECT_EQ(bridge.state(9), pixel_state::noCode);
  }
}

// Rows take short gaps with all their pixels side by side, columns pixel by pixel.
TEST(StripeBridging, TreatsRowsAsColumns) {
  constexpr int count = 800;
  cv::RNG random(7);
  cv::Mat_<double> absolute(count, 30);
  cv::Mat_<uchar> state(absolute.size());
  cv::Mat_<int> reading(absolute.size());
  for (int y = 0; y < count; ++y) {
    double const slope = random.uniform(-0.9, 0.9);
    double const start = random.uniform(0.5, 60.0);
    for (int x = 0; x < absolute.cols; ++x) {
      bool const isStep = random.uniform(0, 40) == 0;
      double const p = start + slope * x + random.uniform(-0.2, 0.2) + (isStep ? 4.0 : 0.0);
      int const kind = random.uniform(0, 50);
      absolute(y, x) = std::max(0.0, p);
      state(y, x) = kind == 0 ? pixel_state::noCode : kind < 25 ? pixel_state::open : pixel_state::trusted;
      unsigned const shown = StripeCode::shownWord(static_cast<int>((absolute(y, x) + pi / 4) / (2 * pi)));
      unsigned const flipped = random.uniform(0, 8) == 0 ? 1U << random.uniform(0, 8) : 0U;
      reading(y, x) = static_cast<int>((shown ^ flipped) & 0xffU) | random.uniform(0, 256) << certainShift;
    }
  }
  auto const bridged = [&](bool isTurned) {
    ScanMaps maps = mapsOf(
        isTurned ? cv::Size(count, absolute.cols) : absolute.size(),
        [&](int x, int y) { return isTurned ? absolute(x, y) : absolute(y, x); },
        [&](int x, int y) { return isTurned ? state(x, y) : state(y, x); });
    cv::Mat(isTurned ? cv::Mat(reading.t()) : cv::Mat(reading)).copyTo(maps.reading.inner);
    ScanDecodingSettings const settings = smallProjector();
    if (isTurned) {
      bridgeColumns(settings, StripeSpacing(settings.period), nullptr, maps, Progress());
    } else {
      StripeBridging bridging(settings, StripeSpacing(settings.period), stripeBorderReach, maps);
      for (int y = 0; y < count; ++y) {
        bridging.alongRow(y);
      }
    }
    return maps;
  };
  ScanMaps const rows = bridged(false);
  ScanMaps const columns = bridged(true);
  EXPECT_EQ(cv::countNonZero(rows.state.inner != columns.state.inner.t()), 0);
  EXPECT_EQ(cv::countNonZero(rows.order.inner != columns.order.inner.t()), 0);
  EXPECT_GT(cv::countNonZero(rows.state.inner == static_cast<int>(pixel_state::bridged)), 500);
  EXPECT_GT(cv::countNonZero(rows.state.inner != state), 500);
}

} // namespace
} // namespace vorn::mv::sl
