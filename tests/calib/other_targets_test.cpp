// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// The detector on targets unlike the one that the library draws: other sizes of dots, no markers, staggered
/// rows, printed dots of uneven sizes.

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/core/library.hpp>

#include "support/target_photos.hpp"

namespace vorn::test {
namespace {

using mv::CalibPatternDetector;
using sim::Overlay;
using sim::TargetPhoto;

/// Pixels between dots in these views.
constexpr double pitchInPixels = 50;

class OtherTargetsTest : public testing::Test {
protected:
  static void SetUpTestSuite() { mv::Library::init(); }

  /// A slanted view of a target whose dots are `diameter` of the pitch wide.
  static TargetPhoto photoOf(double diameter, bool hasMarkers) {
    TargetPhoto photo = targetPhoto(0.5 * pitchInPixels, 30, 40, 20);
    photo.target.grid.dotDiameter = diameter;
    photo.target.grid.hasMarkers = hasMarkers;
    return photo;
  }
};

/// How many of the dots wholly in view were found, and how far the middle one of them is off: for targets
/// whose indices are counted from anywhere. Any key point far from every dot counts as wrong.
struct UnmarkedErrors {
  int visible = 0;
  int found = 0;
  int wrong = 0;
  double worst = 0;
};

UnmarkedErrors compareUnmarked(CalibPatternDetector::Result const& result, TargetPhoto const& photo) {
  auto const truth = sim::visibleDots(photo);
  UnmarkedErrors errors;
  errors.visible = static_cast<int>(sim::visibleDots(photo, 2.5).size());
  for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
    double least = 2; // pixels
    for (sim::DotTruth const& dot : truth) {
      least = std::min(least, cv::norm(*dot.camera - cv::Point2d(point.imgPnt)));
    }
    ++(least < 2 ? errors.found : errors.wrong);
    errors.worst = std::max(errors.worst, least);
  }
  return errors;
}

CalibPatternDetector wideDetector() {
  CalibPatternDetector detector = targetDetector();
  detector["YMin"] = -12;
  detector["YMax"] = 12;
  detector["XMin"] = -12;
  detector["XMax"] = 12;
  return detector;
}

TEST_F(OtherTargetsTest, MarkedDotsOfAnyShareOfThePitchAreAsExactAsTheirEdgesAllow) {
  for (double const diameter : {0.26, 0.34, 0.41, 0.6}) {
    SCOPED_TRACE(testing::Message() << "dots of " << diameter << " of the pitch");
    TargetPhoto const photo = photoOf(diameter, true);
    auto const result = targetDetector().detect(sim::render(photo));
    EXPECT_TRUE(result.isOriginMarked());
    DetectionErrors const errors = compare(result, photo);
    EXPECT_EQ(errors.found, errors.visible) << errors;
    EXPECT_EQ(errors.wrong, 0) << errors;
    // A centre is known from the length of its edge: 0.01 px for dots of half the pitch.
    EXPECT_LT(errors.rms, 0.01 * std::sqrt(0.5 / diameter)) << errors;
  }
}

TEST_F(OtherTargetsTest, UnmarkedDotsFromAFifthOfThePitchToFourFifths) {
  for (double const diameter : {0.2, 0.34, 0.7, 0.8}) {
    SCOPED_TRACE(testing::Message() << "dots of " << diameter << " of the pitch");
    TargetPhoto const photo = photoOf(diameter, false);
    auto const result = wideDetector().detect(sim::render(photo));
    EXPECT_FALSE(result.isOriginMarked());
    UnmarkedErrors const errors = compareUnmarked(result, photo);
    EXPECT_GE(errors.found, errors.visible);
    EXPECT_EQ(errors.wrong, 0);
    EXPECT_LT(errors.worst, 0.08);
  }
}

TEST_F(OtherTargetsTest, BrightPartsBesideAStaggeredGridAreNotItsMarkers) {
  TargetPhoto photo = photoOf(0.5, false);
  photo.cam_from_target = sim::viewOf({0, 0}, 750, 0, 0, 0);
  photo.target.grid.columns = {-5, 6};
  photo.target.grid.rows = {-5, 6};
  photo.target.grid.isStaggered = true;
  // The lattice of these dots runs along the diagonals, and the square that holds it along them reaches far
  // beyond the plate: there stand three bright things, as far apart as neighbours on the lattice.
  for (double const side : {1.0, -1.0}) {
    photo.overlays.clear();
    for (cv::Point2d const& place : {cv::Point2d(0, -8), cv::Point2d(1, -7), cv::Point2d(-1, -7)}) {
      auto const centre =
          photo.device.project(photo.cam_from_target * cv::Vec3d(15 * place.x, 15 * side * place.y, 0));
      float const size = 0.9F * static_cast<float>(pitchInPixels);
      photo.overlays.push_back({{cv::Point2f(*centre), {size, size}, 0}, Overlay::Shape::Box, 0.95});
    }
    auto const result = wideDetector().detect(sim::render(photo));
    EXPECT_FALSE(result.isOriginMarked());
    UnmarkedErrors const errors = compareUnmarked(result, photo);
    EXPECT_EQ(errors.visible, 61);
    EXPECT_EQ(errors.found, errors.visible) << side;
    EXPECT_EQ(errors.wrong, 0);
  }
}

TEST_F(OtherTargetsTest, TwoSetsOfMarkersLeaveAGridWithoutAnOrigin) {
  TargetPhoto photo = photoOf(0.5, true);
  photo.cam_from_target = sim::viewOf({0, 0}, 750, 0, 0, 0);
  for (cv::Point2d const& place : {cv::Point2d(5, 3), cv::Point2d(6, 3), cv::Point2d(5, 4)}) {
    auto const centre =
        photo.device.project(photo.cam_from_target * cv::Vec3d(15 * place.x, 15 * place.y, 0));
    float const size = 0.75F * static_cast<float>(pitchInPixels);
    photo.overlays.push_back({{cv::Point2f(*centre), {size, size}, 0}, Overlay::Shape::Ellipse, 0.85});
  }
  auto const result = wideDetector().detect(sim::render(photo));
  EXPECT_FALSE(result.isOriginMarked());
  UnmarkedErrors const errors = compareUnmarked(result, photo);
  EXPECT_GE(errors.found, errors.visible - 6);
  EXPECT_EQ(errors.wrong, 0);
}

TEST_F(OtherTargetsTest, UnevenPrintedDotsAreAllKept) {
  for (double const scatter : {0.01, 0.02, 0.03}) {
    TargetPhoto photo = photoOf(0.5, true);
    photo.target.grid.sizeScatter = scatter;
    auto const result = targetDetector().detect(sim::render(photo));
    EXPECT_TRUE(result.isOriginMarked());
    DetectionErrors const errors = compare(result, photo);
    EXPECT_GE(errors.found, errors.visible - 1) << scatter << ": " << errors;
    EXPECT_LT(errors.rms, 0.015) << scatter << ": " << errors;
  }
}

TEST_F(OtherTargetsTest, DotsAtABoundOfTheirAreaAreKeptTogether) {
  // 6.2 to 8.5 px wide, 30 to 57 px².
  TargetPhoto photo = targetPhoto(8.2, 20, 30, 10);
  DetectionErrors errors;
  CalibPatternDetector detector = targetDetector();
  detector["MinDotArea"] = 50.0;
  errors = compare(detector.detect(sim::render(photo)), photo);
  EXPECT_EQ(errors.found, errors.visible) << errors;
  // 1000 to 1600 px².
  photo = targetPhoto(42, 20, 30, 10);
  detector["MaxDotArea"] = 1300.0;
  errors = compare(detector.detect(sim::render(photo)), photo);
  EXPECT_EQ(errors.found, errors.visible) << errors;
}

} // namespace
} // namespace vorn::test
