// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Every stage of decoding by itself, on small maps whose outcome is known.
#include <algorithm>
#include <cmath>
#include <functional>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>

#include "sl/decode/contrast_mask.hpp"
#include "sl/decode/doubtful_growth.hpp"
#include "sl/decode/pixel_reading.hpp"
#include "sl/decode/stripe_bridging.hpp"
#include "sl/decode/surface_edges.hpp"
#include "sl/unwrap/order_growth.hpp"

namespace vorn::mv::sl {
namespace {

constexpr double pi = 3.14159265358979324;
constexpr CodeReading nothingCertain = 0;

/// Sets a pixel of the maps by its absolute phase; only known pixels keep the order.
void setPixel(ScanMaps& maps, cv::Point p, double absolute, uchar state) {
  int const order = static_cast<int>(std::floor(absolute / (2 * pi)));
  maps.wrapped.inner(p) = static_cast<float>(absolute - order * 2 * pi);
  maps.order.inner(p) = pixel_state::isKnown(state) ? static_cast<short>(order) : noOrder;
  maps.state.inner(p) = state;
  maps.reading.inner(p) = static_cast<int>(nothingCertain);
}

ScanMaps mapsOf(cv::Size size, std::function<double(int x, int y)> const& absolute,
                std::function<uchar(int x, int y)> const& state) {
  ScanMaps maps;
  maps.create(size);
  maps.contrast.setTo(255);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      setPixel(maps, {x, y}, absolute(x, y), state(x, y));
    }
  }
  return maps;
}

/// What one pixel's images are read as.
struct ReadPixel {
  float wrapped = 0;
  short order = 0;
  int reading = 0;
  uchar contrast = 0;
  uchar state = 0;

  ReadPixel(std::vector<int> const& levels, ScanDecodingSettings const& settings) {
    Library::init();
    std::vector<cv::Mat> images;
    for (int const level : levels) {
      images.emplace_back(1, 1, CV_8UC1, cv::Scalar(level));
    }
    PixelReader(images, settings, {1, 1, 1, 1})
        .read(0, PhaseSource::Images, {&wrapped, &order, &reading, &contrast, &state});
  }
};

ScanDecodingSettings smallProjector() {
  ScanDecodingSettings settings;
  settings.resolution = 40;
  return settings;
}

TEST(PixelReading, TellsWhyAPixelIsOfNoUse) {
  ScanDecodingSettings settings = smallProjector();
  auto const stateOf = [&](std::vector<int> levels, std::vector<int> const& codes) {
    levels.insert(levels.end(), codes.begin(), codes.end());
    uchar const state = ReadPixel(levels, settings).state;
    return state == pixel_state::trusted ? pixel_state::open : state;
  };
  std::vector<int> const codes{150, 30, 150, 30};
  EXPECT_EQ(stateOf({140, 100, 40, 80}, codes), pixel_state::open);
  // Clipped at the crest of the fringe only, on average no brighter than others.
  EXPECT_EQ(stateOf({255, 140, 30, 140}, codes), pixel_state::clipped);
  EXPECT_EQ(stateOf({254, 140, 30, 140}, codes), pixel_state::open);
  settings.maxGrayLevel = 140;
  EXPECT_EQ(stateOf({254, 140, 30, 140}, codes), pixel_state::clipped); // the mean is 141
  settings.maxGrayLevel = 150;
  EXPECT_EQ(stateOf({93, 90, 88, 90}, codes), pixel_state::dark);  // amplitude 2.5
  EXPECT_EQ(stateOf({93, 90, 87, 90}, codes), pixel_state::open);  // 3
  EXPECT_EQ(stateOf({100, 60, 80, 40}, codes), pixel_state::dark); // no sine: 180 is not 100
  EXPECT_EQ(stateOf({95, 90, 85, 90}, {90, 80, 90, 80}),
            pixel_state::unsettledContrast);                                 // range 10, amplitude 5
  EXPECT_EQ(stateOf({98, 90, 82, 90}, {90, 80, 90, 80}), pixel_state::open); // 8 is more than half of 15
}

TEST(PixelReading, ClaimsAnOrderOnlyWhereEveryImageIsCertain) {
  // Word 5 = 101: reference 1, planes 0^1, 1^1. Stripe 3; the phase of its middle is half a period.
  std::vector<int> const phases{90, 40, 90, 140};
  auto const claim = [&](std::vector<int> const& codes, ScanDecodingSettings const& settings) {
    std::vector<int> levels = phases;
    levels.insert(levels.end(), codes.begin(), codes.end());
    return ReadPixel(levels, settings).order;
  };
  ScanDecodingSettings settings = smallProjector();
  EXPECT_EQ(claim({140, 140, 40}, settings), 3);
  // The middle is 90 and the amplitude 50: 20 grey levels are needed.
  EXPECT_EQ(claim({140, 110, 40}, settings), 3);
  EXPECT_EQ(claim({140, 109, 40}, settings), noOrder);
  // The range's middle counts, too: 70 to 140 has it at 105, five more than a fringe of mean 90 allows for.
  EXPECT_EQ(claim({140, 120, 70}, settings), noOrder);
  settings.rules.certainImages = false;
  EXPECT_EQ(claim({140, 109, 40}, settings), 3);
  settings.resolution = 12; // three stripes
  EXPECT_EQ(claim({140, 140, 40}, settings), noOrder);
}

TEST(PixelReading, CallsAnImageCertainBeyondItsDistanceFromTheMiddle) {
  // The middle is 90 and the amplitude 50: beyond 20 grey levels.
  auto const certain = [](std::vector<int> const& codes) {
    std::vector<int> levels{90, 40, 90, 140};
    levels.insert(levels.end(), codes.begin(), codes.end());
    return static_cast<CodeReading>(ReadPixel(levels, smallProjector()).reading) >> certainShift;
  };
  EXPECT_EQ(certain({140, 110, 40}), 0b101U);
  EXPECT_EQ(certain({140, 111, 40}), 0b111U);
  EXPECT_EQ(certain({140, 70, 40}), 0b101U);
  EXPECT_EQ(certain({140, 69, 40}), 0b111U);
}

TEST(ContrastMask, OpensWhatGoodPixelsSurroundAndTakesBackTheRim) {
  constexpr int reach = 8;
  auto const isGood = [](int x, int y) { return (x < 10 || (x >= 16 && x < 30)) && y < 20; };
  ScanMaps maps = mapsOf(
      {50, 30}, [](int, int) { return 1.0; },
      [&](int x, int y) { return isGood(x, y) ? pixel_state::open : pixel_state::unsettledContrast; });
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 50; ++x) {
      maps.contrast(y, x) = isGood(x, y) ? 255 : 0;
    }
  }
  settleContrast(maps, std::vector<uchar>(30, 1), reach);
  for (int y = 0; y < 20; ++y) {
    for (int x = 0; x < 50; ++x) {
      // The gap of six columns lies between good pixels; what lies beside the right end does not.
      ASSERT_EQ(maps.state.inner(y, x), x < 30 ? pixel_state::open : pixel_state::lowContrast)
          << x << " " << y;
    }
  }
  EXPECT_EQ(maps.state.inner(25, 5), pixel_state::lowContrast);
}

TEST(ContrastMask, IsAClosingOverAllBands) {
  constexpr int reach = 8;
  constexpr int around = reach / 2;
  cv::Size const size(40, 300);
  cv::RNG random(3);
  cv::Mat_<uchar> lit(size);
  for (uchar& pixel : lit) {
    pixel = random.uniform(0, 100) < 2 ? 255 : 0;
  }
  ScanMaps maps = mapsOf(
      size, [](int, int) { return 1.0; }, [](int, int) { return pixel_state::unsettledContrast; });
  lit.copyTo(maps.contrast);
  std::vector<uchar> hasUnsettled(static_cast<std::size_t>(size.height), 1);
  settleContrast(maps, hasUnsettled, reach);
  cv::Rect const image({0, 0}, size);
  auto const window = [&](int x, int y) {
    return cv::Rect(x - around, y - around, 2 * around + 1, 2 * around + 1) & image;
  };
  int open = 0;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      // Wherever a window that covers the pixel lies, there is light in it.
      bool isSurrounded = true;
      cv::Rect const places = window(x, y);
      for (int v = places.y; v < places.br().y; ++v) {
        for (int u = places.x; u < places.br().x; ++u) {
          isSurrounded = isSurrounded && cv::countNonZero(lit(window(u, v))) > 0;
        }
      }
      ASSERT_EQ(maps.state.inner(y, x), isSurrounded ? pixel_state::open : pixel_state::lowContrast)
          << x << " " << y;
      open += isSurrounded ? 1 : 0;
    }
  }
  EXPECT_GT(open, 500);
}

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
    StripeBridging bridging(smallProjector(), reach, maps);
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

/// A surface that something happens to beyond column 80, seen turned by quarters.
struct EdgeScene {
  cv::Size size{150, 150}; // more rows than are walked over together
  std::function<double(int along)> absolute = [](int along) { return 100 + 0.3 * along; };
  std::function<double(int along)> amplitude = [](int) { return 50.0; };
  std::function<bool(int along)> isKnown = [](int) { return true; };

  /// Which pixels along the turned axis lose their coordinate; each must do so all along the edge.
  std::vector<int> closed(int quarters) const {
    auto const along = [&](int x, int y) {
      int const values[] = {x, y, size.width - 1 - x, size.height - 1 - y};
      return values[quarters];
    };
    ScanMaps maps = mapsOf(
        size, [&](int x, int y) { return absolute(along(x, y)); },
        [&](int x, int y) { return isKnown(along(x, y)) ? pixel_state::trusted : pixel_state::noCode; });
    std::vector<cv::Mat> steps(4);
    for (int k = 0; k < 4; ++k) {
      cv::Mat_<uchar> image(size);
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          double const a = amplitude(along(x, y));
          image(y, x) = cv::saturate_cast<uchar>(100 + a * std::sin(absolute(along(x, y)) + k * pi / 2));
        }
      }
      steps[static_cast<std::size_t>(k)] = image;
    }
    cv::Mat_<float> coordinates(size);
    closeEdges(steps, smallProjector(), maps, coordinates, Progress());
    std::vector<int> result;
    for (int i = 0; i < size.width; ++i) {
      int missing = 0;
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          bool const isClosed = maps.state.inner(y, x) == pixel_state::edge;
          EXPECT_EQ(coordinates(y, x) >= 0, pixel_state::isKnown(maps.state.inner(y, x)));
          missing += along(x, y) == i && isClosed ? 1 : 0;
        }
      }
      EXPECT_TRUE(missing == 0 || missing == size.height) << i;
      if (missing > 0) {
        result.push_back(i);
      }
    }
    return result;
  }
};

TEST(SurfaceEdges, LosePixelsOnBothSidesOfAJumpWhicheverWayItRuns) {
  using Pixels = std::vector<int>;
  for (int quarters = 0; quarters < 4; ++quarters) {
    SCOPED_TRACE(quarters);
    EXPECT_EQ(EdgeScene().closed(quarters), Pixels());
    for (int at : {62, 63, 64, 65, 80}) { // where pixels that are judged together end, and elsewhere
      EdgeScene jump;
      jump.absolute = [at](int along) { return 100 + 0.3 * along + (along > at ? 3.0 : 0); };
      EXPECT_EQ(jump.closed(quarters), (Pixels{at, at + 1}));
    }
    // Beyond a pixel of unknown phase.
    EdgeScene gap;
    gap.absolute = [](int along) { return 100 + (along > 80 ? 4.1 : 0); };
    gap.isKnown = [](int along) { return along != 80; };
    EXPECT_EQ(gap.closed(quarters), (Pixels{79, 81}));
  }
}

TEST(SurfaceEdges, LoseThePixelThatIsCoveredInPart) {
  using Pixels = std::vector<int>;
  for (int quarters = 0; quarters < 4; ++quarters) {
    SCOPED_TRACE(quarters);
    EdgeScene end;
    end.isKnown = [](int along) { return along <= 80; };
    EXPECT_EQ(end.closed(quarters), Pixels());
    end.amplitude = [](int along) { return along == 80 ? 33.0 : 50.0; }; // less than 0.7
    EXPECT_EQ(end.closed(quarters), Pixels{80});
    end.amplitude = [](int along) { return along == 80 ? 38.0 : 50.0; };
    EXPECT_EQ(end.closed(quarters), Pixels());
    end.amplitude = [](int along) { return along >= 79 ? 31.0 : 50.0; }; // less than 0.65 before the last one
    EXPECT_EQ(end.closed(quarters), (Pixels{79, 80}));
  }
}

TEST(SurfaceEdges, LoseThePixelThatABrighterSurfaceOutshines) {
  for (int quarters = 0; quarters < 4; ++quarters) {
    EdgeScene bright;
    bright.absolute = [](int along) { return 100 + (along > 80 ? 4.1 : along == 80 ? 2.0 : 0); };
    bright.amplitude = [](int along) { return along > 80 ? 90.0 : 20.0; };
    EXPECT_EQ(bright.closed(quarters), std::vector<int>{79}); // no step beside it is a jump
  }
}

} // namespace
} // namespace vorn::mv::sl
