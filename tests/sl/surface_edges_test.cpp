// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sl/decode/surface_edges.hpp"
#include "tests/sl/decode_maps.hpp"

namespace vorn::mv::sl {
namespace {

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
    closeEdges(steps, smallProjector(), CalmChunks(size), maps, coordinates, Progress());
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

// What is found calm while rows are read is not looked at again, whichever rows are read together.
TEST(SurfaceEdges, AreTheSameWhateverIsKnownToBeCalm) {
  cv::Size const size(333, 150);
  cv::RNG random(11);
  std::vector<cv::Mat> steps(4);
  for (cv::Mat& step : steps) {
    step = cv::Mat(size, CV_8U);
    random.fill(step, cv::RNG::UNIFORM, 20, 200);
  }
  ScanDecodingSettings const settings = smallProjector();
  auto const pixelsPerRadian = static_cast<float>(settings.period / (2 * pi));
  auto const closed = [&](std::vector<int> const& begins) {
    cv::RNG same(5);
    ScanMaps maps = mapsOf(
        size, [](int x, int y) { return 100 + 0.2 * x + (y > 70 && x > 150 && x < 230 ? 9.0 : 0.0); },
        [&](int, int) { return same.uniform(0, 1500) == 0 ? pixel_state::noCode : pixel_state::trusted; });
    CalmChunks calm(size);
    cv::Mat_<float> coordinates(size, 1e6F);
    int found = 0;
    for (std::size_t i = 0; i + 1 < begins.size(); ++i) {
      CalmWalk walk(maps, pixelsPerRadian, calm, coordinates);
      for (int y = begins[i]; y < begins[i + 1]; ++y) {
        walk.read(y);
        found += calm.isAlong(y, 1, 2) ? 1 : 0;
      }
    }
    EXPECT_EQ(found > size.height / 2, !begins.empty());
    closeEdges(steps, settings, calm, maps, coordinates, Progress());
    return std::make_pair(maps.state.inner.clone(), coordinates);
  };
  auto const [states, coordinates] = closed({});
  EXPECT_GT(cv::countNonZero(states == static_cast<int>(pixel_state::edge)), 300);
  for (std::vector<int> const& begins : {std::vector<int>{0, 150}, std::vector<int>{0, 37, 64, 150}}) {
    auto const [otherStates, otherCoordinates] = closed(begins);
    EXPECT_EQ(cv::countNonZero(states != otherStates), 0);
    EXPECT_EQ(cv::countNonZero(coordinates != otherCoordinates), 0);
  }
}

} // namespace
} // namespace vorn::mv::sl
