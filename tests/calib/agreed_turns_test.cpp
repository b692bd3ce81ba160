// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/agreed_turns.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "calib/adjustment_rig.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;

/// Views whose dots are counted as if the target were turned by so many quarter turns.
std::vector<AdjustmentView> countedTurned(std::vector<AdjustmentView> views, std::vector<int> const& turns) {
  for (std::size_t i = 0; i < views.size(); ++i) {
    for (cv::Point2f& dot : views[i].objPnts) {
      for (int k = 0; k < turns[i]; ++k) {
        dot = {-dot.y, dot.x};
      }
    }
  }
  return views;
}

/// The turns that are agreed for a single camera, or for camera and projector.
AgreedTurns agreed(std::vector<AdjustmentView> const& views, int readings, AdjustmentRig const& rig,
                   bool isScanner) {
  AdjustmentSettings flat;
  flat.shape = AdjustmentSettings::Shape::Flat;
  std::vector<AdjustmentView> seen = views;
  if (!isScanner) {
    for (AdjustmentView& view : seen) {
      view.points1.clear();
    }
  }
  Adjustment const adjustment = isScanner ? adjustScanner(seen, AdjustmentRig::sizeOf(rig.camera),
                                                          AdjustmentRig::sizeOf(rig.projector), flat)
                                          : adjustCamera(seen, AdjustmentRig::sizeOf(rig.camera), flat);
  return agreedTurns(seen, std::vector<int>(seen.size(), readings), {0, 0}, adjustment);
}

/// A target whose one side hangs more than the other.
AdjustmentRig unevenRig(int halfColumns, int halfRows) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.02;
  rig.projectorNoise = 0.006;
  rig.halfColumns = halfColumns;
  rig.halfRows = halfRows;
  double const half = rig.pitch * halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) {
    double const x = dot[0] / half;
    return cv::Vec3d(0, 0, 0.3 * x * x + 0.15 * x * x * x);
  };
  return rig;
}

TEST(AgreedTurns, OneShapeTellsHowEachViewIsCounted) {
  struct Case {
    int halfColumns, halfRows, readings;
    std::vector<int> turns;
    bool isScanner;
  };
  for (Case const& of :
       {Case{7, 5, 2, {0, 2, 0, 2, 2, 0, 2, 0}, false}, Case{7, 5, 2, {2, 2, 2, 0, 0, 0, 0, 2}, true},
        Case{5, 5, 4, {0, 1, 2, 3, 3, 1, 0, 2}, false}}) {
    AdjustmentRig const rig = unevenRig(of.halfColumns, of.halfRows);
    auto const views = countedTurned(rig.views(8), of.turns);
    AgreedTurns const found = agreed(views, of.readings, rig, of.isScanner);
    EXPECT_TRUE(found.areAllTold()) << of.readings;
    ASSERT_EQ(found.turns.size(), views.size());
    for (std::size_t i = 0; i < views.size(); ++i) {
      EXPECT_EQ((found.turns[i] + of.turns[i]) % 4, (found.turns[0] + of.turns[0]) % 4) << i;
    }
    // Counted anew, the dots are those of one count.
    std::vector<cv::Point2f> const dots = rig.dots();
    for (cv::Point2f const& dot : turnedDots(views[1].objPnts, {0, 0}, found.turns[1], dots)) {
      EXPECT_NE(std::find(dots.begin(), dots.end(), dot), dots.end());
    }
  }
}

TEST(AgreedTurns, WhatTurningLeavesAsItIsTellsNothing) {
  AdjustmentRig flat = unevenRig(7, 5);
  flat.deviation = [](cv::Vec2d const&) { return cv::Vec3d(); };
  AdjustmentRig even = unevenRig(7, 5);
  even.deviation = [](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.3 * std::pow(dot[0] / 140, 2)); };
  for (AdjustmentRig const& rig : {flat, even}) {
    AgreedTurns const found = agreed(rig.views(8), 2, rig, false);
    EXPECT_EQ(std::count(found.areTold.begin(), found.areTold.end(), true), 0);
  }
}

} // namespace
} // namespace vorn::mv
