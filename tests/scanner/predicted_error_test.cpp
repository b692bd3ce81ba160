// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include "calib/adjustment_runs.hpp"
#include "scanner/drawn_calibration.hpp"

namespace vorn::mv {
namespace {

/// A target that is hardly tilted, and stands at much the same depth in all views.
std::vector<AdjustmentView> hardlyTilted(test::AdjustmentRig const& rig, std::uint64_t seed) {
  cv::RNG rng(seed);
  std::vector<AdjustmentView> views;
  for (int i = 0; i < 8; ++i) {
    cv::Matx33d R;
    cv::Rodrigues(cv::Vec3d(0.08 * std::sin(2.1 * i), 0.08 * std::cos(1.7 * i), 0.1 * i), R);
    cv::Vec3d const place(25 * std::cos(3.0 * i), 20 * std::sin(5.0 * i), 530 + 15 * std::sin(1.3 * i));
    views.push_back(rig.view(math::createTransform(R, place), rng));
    views.back().name = "pose_" + std::to_string(i);
  }
  return views;
}

double squaredError(Sl3dScanner const& scanner, test::AdjustmentRig const& rig,
                    std::vector<cv::Vec3d> const& places) {
  PointUncertainty const uncertainty(scanner);
  std::vector<cv::Vec3d> found;
  for (cv::Vec3d const& place : places) {
    cv::Vec2d const pixel = test::AdjustmentRig::imageOf(rig.camera, place);
    double const column = test::AdjustmentRig::imageOf(rig.projector, rig.inProjector(place))[0];
    found.emplace_back(uncertainty.at({{pixel[0], pixel[1]}, column, 0}).point);
  }
  return test::errorsOf(found, places).rigid2;
}

// What is foretold where the target was says nothing of places nearer or farther, which a target that is
// hardly tilted leaves open; over twice the depths it is foretold as well.
TEST(PredictedError, SmallTiltsHoldNoFartherThanTheTargetWas) {
  test::AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  constexpr int runs = 16;
  double within2 = 0;
  double beyond2 = 0;
  double foretold2 = 0;
  double foretoldBeyond2 = 0;
  WorkingVolume within;
  WorkingVolume beyond;
  std::vector<cv::Vec3d> placesWithin;
  std::vector<cv::Vec3d> placesBeyond;
  for (int run = 0; run < runs; ++run) {
    CalibrationSettings settings;
    ScannerCalibration const calibration =
        test::calibratedFrom(hardlyTilted(rig, 10 + static_cast<std::uint64_t>(run)), rig, settings);
    CalibrationReport const& report = calibration.report;
    ASSERT_TRUE(report.predicted && report.predictedBeyond);
    if (run == 0) {
      within = report.predicted->volume;
      beyond = report.predictedBeyond->volume;
      EXPECT_NEAR(beyond.farthest - beyond.nearest, 2 * (within.farthest - within.nearest), 1e-6);
      EXPECT_NEAR(beyond.farthest + beyond.nearest, within.farthest + within.nearest, 1e-6);
      placesWithin = test::placesIn(rig, within, 300);
      placesBeyond = test::placesIn(rig, beyond, 300);
      nlohmann::json const json = toJson(calibration);
      EXPECT_EQ(json["predicted"]["farthest"], within.farthest);
      EXPECT_EQ(json["predictedBeyond"]["nearest"], beyond.nearest);
      EXPECT_EQ(json["predictedBeyond"]["rigid"], report.predictedBeyond->rigid);
    }
    SightGeometry const geometry(calibration.object.getCameraModel(), calibration.object.getProjectorModel(),
                                 calibration.object.getTransform(), MapCoordinate::Column);
    CalibrationMatrix const covariance = wholeMatrix(calibration.object.getCovariance());
    within2 += squaredError(calibration.object, rig, placesWithin);
    beyond2 += squaredError(calibration.object, rig, placesBeyond);
    foretold2 += std::pow(predictedError(geometry, covariance, within, placesWithin, 0).rigid, 2);
    foretoldBeyond2 += std::pow(predictedError(geometry, covariance, beyond, placesBeyond, 0).rigid, 2);
    // The report's grid reaches into the corners and to both ends, where errors are greatest.
    EXPECT_GT(report.predictedBeyond->rigid, 1.5 * report.predicted->rigid);
  }
  EXPECT_NEAR(std::sqrt(within2 / foretold2), 1, 0.25);
  EXPECT_NEAR(std::sqrt(beyond2 / foretoldBeyond2), 1, 0.25);
  EXPECT_GT(beyond2, 2 * within2);
}

} // namespace
} // namespace vorn::mv
