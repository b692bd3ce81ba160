// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "scanner/drawn_calibration.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;

/// A rig before a plate without marks, bent by `even` and by `uneven` mm, the one side as the other or
/// against it.
AdjustmentRig rigWith(double even, double uneven) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.02;
  rig.projectorNoise = 0.006;
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [=](cv::Vec2d const& dot) {
    double const x = dot[0] / half;
    return cv::Vec3d(0, 0, even * x * x + uneven * x * x * x);
  };
  return rig;
}

/// The plate's views, every other one counted from its other end.
std::vector<AdjustmentView> viewsOf(AdjustmentRig const& rig) {
  std::vector<AdjustmentView> views = rig.views(8);
  for (std::size_t i = 1; i < views.size(); i += 2) {
    for (cv::Point2f& dot : views[i].objPnts) {
      dot = -dot;
    }
  }
  return views;
}

CalibrationSettings settingsFor(AdjustmentRig const& rig) {
  CalibrationSettings settings;
  settings.target = TargetDescription();
  settings.target->pitch = rig.pitch;
  settings.target->size = {2 * rig.halfColumns + 1, 2 * rig.halfRows + 1};
  settings.target->first = {-rig.halfColumns, -rig.halfRows};
  return settings;
}

TEST(TurnedViews, AreCountedAsOneShapeWantsIt) {
  AdjustmentRig const rig = rigWith(0.3, 0.15);
  ScannerCalibration const calibration = test::calibratedFrom(viewsOf(rig), rig, settingsFor(rig), 2);
  ASSERT_TRUE(calibration.report.adjustment) << calibration.report.notAdjusted;
  EXPECT_EQ(calibration.report.shapeLimit, "");
  TargetShape const& shape = calibration.report.adjustment->shape;
  EXPECT_EQ(shape.kind, TargetShape::Kind::Smooth);
  EXPECT_EQ(shape.degree, 6);
  EXPECT_NEAR(shape.sagX, 0.3, 0.02);
  EXPECT_NEAR(calibration.report.adjustment->s0, 1, 0.1);
}

TEST(TurnedViews, ThatTellNothingKeepTheShapeToWhatTurningLeaves) {
  for (double const even : {0.0, 0.3}) {
    AdjustmentRig const rig = rigWith(even, 0);
    ScannerCalibration const calibration = test::calibratedFrom(viewsOf(rig), rig, settingsFor(rig), 2);
    ASSERT_TRUE(calibration.report.adjustment) << calibration.report.notAdjusted;
    EXPECT_NE(calibration.report.shapeLimit.find("pose_0"), std::string::npos)
        << calibration.report.shapeLimit;
    EXPECT_NE(calibration.report.shapeLimit.find("right of a flat one"), std::string::npos)
        << "nothing is wrong with a flat one";
    TargetShape const& shape = calibration.report.adjustment->shape;
    EXPECT_EQ(shape.kind, even > 0 ? TargetShape::Kind::Smooth : TargetShape::Kind::Flat);
    EXPECT_NEAR(shape.sagX, even, 0.02);
    EXPECT_NEAR(calibration.report.adjustment->s0, 1, 0.1);
  }
}

} // namespace
} // namespace vorn::mv
