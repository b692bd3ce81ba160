// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "calib/adjustment_runs.hpp"
#include "scanner/drawn_calibration.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;

/// The whole job on points that a rig's devices would find.
ScannerCalibration calibrated(AdjustmentRig const& rig, CalibrationSettings const& settings) {
  return test::calibratedFrom(rig.views(8), rig, settings);
}

/// What points of the volume are off by after the best rigid motion, root mean square in mm.
double rigidError(ScannerCalibration const& calibration, AdjustmentRig const& rig) {
  PointUncertainty const uncertainty(calibration.object);
  std::vector<cv::Vec3d> const places = test::placesIn(rig, {450, 600}, 150);
  std::vector<cv::Vec3d> found;
  for (cv::Vec3d const& place : places) {
    cv::Vec2d const pixel = AdjustmentRig::imageOf(rig.camera, place);
    double const column = AdjustmentRig::imageOf(rig.projector, rig.inProjector(place))[0];
    found.emplace_back(uncertainty.at({{pixel[0], pixel[1]}, column, 0}).point);
  }
  return std::sqrt(test::errorsOf(found, places).rigid2);
}

bool isLensNamed(ScannerCalibration const& calibration) {
  auto const& findings = calibration.report.findings;
  return std::any_of(findings.begin(), findings.end(),
                     [](Finding const& finding) { return finding.cause == FindingCause::LensModel; });
}

struct LensChoice : testing::Test {
  LensChoice() {
    rig.cameraNoise = 0.006;
    rig.projectorNoise = 0.0018;
    rig.halfColumns = 9;
    rig.halfRows = 6;
    rig.pitch = 18;
  }

  AdjustmentRig rig;
};

TEST_F(LensChoice, LensesThatNeedPrismTermsGetThemAndItIsSaid) {
  rig.camera.D = {-0.12, 0.09, 6e-4, -4e-4, -0.02, 0, 0, 0, 2e-3, -1e-3, -3e-3, 5e-4};
  ScannerCalibration const own = calibrated(rig, {});
  EXPECT_TRUE(isLensNamed(own));
  ASSERT_EQ(own.report.findings.size(), 1U) << "what five coefficients left is gone with them";
  EXPECT_NE(own.report.findings[0].text.find("the calibration has them"), std::string::npos);
  ASSERT_TRUE(own.report.adjustment);
  auto const& names = own.report.adjustment->parameters;
  EXPECT_EQ(std::count(names.begin(), names.end(), "s1_0"), 1);
  EXPECT_LT(own.report.adjustment->s0, 1.1);

  CalibrationSettings asked;
  asked.adjustment.lens = AdjustmentSettings::Lens::ThinPrism;
  ScannerCalibration const told = calibrated(rig, asked);
  EXPECT_EQ(told.report.notAdjusted, "");
  EXPECT_TRUE(told.report.findings.empty());
  EXPECT_LT(rigidError(told, rig), 0.003);

  CalibrationSettings plain;
  plain.isLensExtended = false;
  ScannerCalibration const five = calibrated(rig, plain);
  EXPECT_TRUE(isLensNamed(five));
  EXPECT_EQ(five.report.adjustment->parameters.size(), 24U);
  double const error = rigidError(own, rig);
  EXPECT_LT(error, 0.003);
  EXPECT_LT(error, 0.2 * rigidError(five, rig));
}

TEST_F(LensChoice, LensesOfFiveCoefficientsKeepThem) {
  ScannerCalibration const calibration = calibrated(rig, {});
  EXPECT_FALSE(isLensNamed(calibration));
  EXPECT_EQ(calibration.report.adjustment->parameters.size(), 24U);
  EXPECT_NE(calibration.report.nextView.has_value(), !calibration.report.noNextView.empty());
}

} // namespace
} // namespace vorn::mv
