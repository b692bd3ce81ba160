// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>

#include "sim/plain_object.hpp"
#include "sl/coding/stripe_code.hpp"
#include "sl/decode/scan_decoding.hpp"
#include "sl/decode/weak_rims.hpp"
#include "support/scanner_rig.hpp"
#include "tests/sl/decode_maps.hpp"

namespace vorn::mv::sl {
namespace {

constexpr int rim = 40; ///< the first column of too little contrast
constexpr int end = 55; ///< the first one without light

/// A surface that comes from the left, or from another side, and fades.
struct FadingSurface {
  cv::Size size{60, 60};
  std::function<double(int along)> absolute = [](int along) { return 32.5 + 0.3 * along; };
  std::function<double(cv::Point, int along)> amplitude = [](cv::Point, int along) {
    return 14.0 * std::pow(0.92, std::max(0, along - rim));
  };
  CodeReading reading = nothingCertain;

  static int along(cv::Point p, int quarters) {
    int const values[] = {p.x, p.y, 59 - p.x, 59 - p.y};
    return values[quarters];
  }

  /// How far the surface is carried on, and with how many pixels in all.
  struct Found {
    int farthest = rim - 1;
    int pixels = 0;
  };

  Found carriedOn(int quarters) const {
    ScanMaps maps = mapsOf(
        size,
        [&](int x, int y) {
          return absolute(along({x, y}, quarters));
        },
        [&](int x, int y) {
          int const a = along({x, y}, quarters);
          return a < rim ? pixel_state::trusted : a < end ? pixel_state::lowContrast : pixel_state::dark;
        });
    maps.reading.inner.setTo(static_cast<int>(reading));
    cv::Mat_<float> coordinates(size, noPhase);
    MagnitudeSource const magnitudes = [&](int y, int x, int n, uchar const*, float* out) {
      for (int i = 0; i < n; ++i) {
        out[i] = static_cast<float>(2 * amplitude({x + i, y}, along({x + i, y}, quarters)));
      }
    };
    carryOnOverRims(magnitudes, smallProjector(), maps, coordinates);
    Found found;
    for (int y = 0; y < size.height; ++y) {
      for (int x = 0; x < size.width; ++x) {
        int const a = along({x, y}, quarters);
        bool const isFound = coordinates(y, x) >= 0;
        EXPECT_TRUE(!isFound || (a >= rim && a < end)) << "only pixels of too little contrast are asked";
        EXPECT_EQ(isFound, maps.state.inner(y, x) == pixel_state::grown);
        if (isFound) {
          EXPECT_NEAR(coordinates(y, x), absolute(a) * 4 / (2 * pi), 1e-4);
          found.farthest = std::max(found.farthest, a);
          ++found.pixels;
        }
      }
    }
    return found;
  }
};

TEST(WeakRims, ASurfaceGoesOnWhereItFadesSlowly) {
  for (int quarters = 0; quarters < 4; ++quarters) {
    FadingSurface::Found const found = FadingSurface().carriedOn(quarters);
    EXPECT_EQ(found.farthest, rim + 7) << "a rim is no wider than eight pixels";
    EXPECT_GE(found.pixels, 8 * 58) << "to the borders of the image";
  }
}

TEST(WeakRims, NothingGoesOnIntoShadowOrOverJumpsOrAgainstTheCode) {
  FadingSurface shadow;
  shadow.amplitude = [](cv::Point, int along) { return 14.0 * std::pow(0.6, std::max(0, along - rim + 1)); };
  FadingSurface outline; // of something dark, before nothing
  outline.amplitude = [](cv::Point, int along) { return along < rim ? 8.0 : along == rim ? 7.0 : 1.0; };
  FadingSurface step;
  step.absolute = [](int along) { return 32.5 + 0.3 * along + (along < rim ? 0.0 : 1.5); };
  FadingSurface otherCode; // every image is certain, and shows a stripe far away
  otherCode.reading = StripeCode::shownWord(25) | 0xffU << certainShift;
  FadingSurface brightened; // by noise, one pixel of every six at the end of a surface
  brightened.amplitude = [](cv::Point p, int along) {
    return along < rim || (along == rim && (p.x + p.y - rim) % 6 == 0) ? 14.0 : 8.0;
  };
  for (int quarters = 0; quarters < 4; ++quarters) {
    EXPECT_EQ(shadow.carriedOn(quarters).pixels, 0);
    EXPECT_EQ(outline.carriedOn(quarters).pixels, 0);
    EXPECT_EQ(step.carriedOn(quarters).pixels, 0);
    EXPECT_EQ(otherCode.carriedOn(quarters).pixels, 0);
    EXPECT_EQ(brightened.carriedOn(quarters).pixels, 0);
  }
}

/// Balls before a wall in a quarter of the light: what has too little contrast there is mostly rims.
TEST(WeakRims, MostOfADimBallsRimIsMeasuredAndNoneOfItWrong) {
  Library::init();
  sim::Rig rig = sim::demoRig(2);
  rig.camera.sensor.exposure /= 4;
  std::vector<sim::Object> objects{sim::plainObject("wall", 1, sim::Rectangle{{205, 150}},
                                                    sim::Pose{cv::Matx33d::eye(), {0, 0, 600}}, 0.9)};
  for (int i = 0; i < 6; ++i) {
    objects.push_back(
        sim::plainObject("ball", 2 + i, sim::Sphere{30},
                         {cv::Matx33d::eye(), {-100.0 + 100 * (i % 3), -60.0 + 120 * (i / 3), 520}}, 0.8));
  }
  sim::Scene const scene(objects);
  sim::Truth const truth = sim::truth(rig.camera, rig.projector, scene);
  std::vector<cv::Mat> const images = test::captured(rig, scene);
  ScanDecodingSettings settings;
  settings.resolution = rig.projector.device.resolution().width;
  ScanMaps maps;
  auto const decoded = [&](bool hasRims) {
    settings.rules.weakRims = hasRims;
    return decodeScan(
        images, settings, ReasonMap::Make, maps, [](char const*) {}, Progress());
  };
  DecodedScan const without = decoded(false);
  DecodedScan const with = decoded(true);
  int weak = 0;
  int found = 0;
  for (int y = 0; y < truth.label.rows; ++y) {
    for (int x = 0; x < truth.label.cols; ++x) {
      float const expected = truth.projector(y, x)[0];
      bool const isWeak = without.reasons(y, x) == static_cast<uchar>(PixelReason::LowContrast);
      weak += isWeak && truth.label(y, x) > 1 && !std::isnan(expected) ? 1 : 0;
      if (isWeak && with.coordinates(y, x) >= 0) {
        ++found;
        EXPECT_NEAR(with.coordinates(y, x), expected, 0.5) << x << ", " << y;
      }
    }
  }
  EXPECT_GT(weak, 300);
  EXPECT_GT(found, weak / 2) << "of " << weak;
}

} // namespace
} // namespace vorn::mv::sl
