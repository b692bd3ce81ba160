// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>

#include "sl/decode/contrast_mask.hpp"
#include "sl/decode/pixel_reading.hpp"
#include "tests/sl/decode_maps.hpp"

namespace vorn::mv::sl {
namespace {

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
  // Half of what the sums differ by may be twice the amplitude, 60 here, at a confidence of a half.
  EXPECT_EQ(stateOf({150, 80, 90, 80}, codes), pixel_state::open);
  EXPECT_EQ(stateOf({160, 70, 100, 70}, codes), pixel_state::open);
  EXPECT_EQ(stateOf({162, 68, 102, 68}, codes), pixel_state::dark);
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
  cv::Mat_<uchar> contrast(maps.size());
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 50; ++x) {
      contrast(y, x) = isGood(x, y) ? 255 : 0;
    }
  }
  setContrast(maps, contrast);
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
  setContrast(maps, lit);
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

} // namespace
} // namespace vorn::mv::sl
