// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A scan with columns and rows tells whether its calibration still holds: coordinates are the exact ones of
// the virtual rig's scene, with noise and wrong ones among them; what is wrong is the calibration.
#include <vorn/mv/scanner/check_scan.hpp>

#include <cmath>
#include <limits>
#include <utility>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

struct Maps {
  cv::Mat_<float> columns;
  cv::Mat_<float> rows;
};

Maps const& exactMaps() {
  static Maps const maps = [] {
    sim::Rig const rig = sim::demoRig();
    sim::Truth const truth = sim::truth(rig.camera, rig.projector, sim::demoScene());
    Maps result{cv::Mat_<float>(truth.projector.size(), -1.0F),
                cv::Mat_<float>(truth.projector.size(), -1.0F)};
    for (int y = 0; y < result.columns.rows; ++y) {
      for (int x = 0; x < result.columns.cols; ++x) {
        cv::Vec2f const& p = truth.projector(y, x);
        if (!std::isnan(p[0])) {
          result.columns(y, x) = p[0];
          result.rows(y, x) = p[1];
        }
      }
    }
    return result;
  }();
  return maps;
}

/// With noise, and one pixel in a hundred far off.
Maps noisyMaps(double sigma) {
  Maps maps{exactMaps().columns.clone(), exactMaps().rows.clone()};
  cv::RNG rng(5);
  for (cv::Mat_<float>* map : {&maps.columns, &maps.rows}) {
    for (float& value : *map) {
      if (value >= 0.0F) {
        value += static_cast<float>(rng.gaussian(sigma));
        value = rng.uniform(0, 100) == 0 ? static_cast<float>(rng.uniform(0.0, 500.0)) : value;
      }
    }
  }
  return maps;
}

/// Enough to tell a thousandth of a pixel from nothing.
ScanCheckSettings sparse() {
  ScanCheckSettings settings;
  settings.mostPixels = 60000;
  return settings;
}

constexpr double radians = CV_PI / 180;

/// The exact scanner, its projector turned by degrees about axes of the camera's frame.
Sl3dScanner turned(cv::Vec3d const& degrees) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig());
  cv::Matx33d turn;
  cv::Rodrigues(degrees * radians, turn);
  cv::Matx44d const transform = scanner.getTransform();
  scanner.setTransform(math::createTransform(turn * math::getR3(transform), math::getT3(transform)));
  return scanner;
}

TEST(CheckScan, ATurnedProjectorIsFoundAndTheTruthIsNot) {
  Maps const maps = noisyMaps(0.02);
  ScanCheck const good = checkScan(turned({}), maps.columns, maps.rows);
  EXPECT_EQ(good.verdict, ScanVerdict::Good);
  EXPECT_LT(good.smooth, 0.001);
  EXPECT_NEAR(good.noise, 0.02, 0.004) << "rows' own, and that of columns where light falls aslant";
  EXPECT_EQ(good.turn, cv::Vec3d());
  EXPECT_GT(good.pixels, 50000U);
  EXPECT_GT(static_cast<double>(good.outliers), 0.01 * static_cast<double>(good.pixels));
  EXPECT_GT(good.coverage, 0.5);
  EXPECT_EQ(good.map.size(), cv::Size(24, 18));

  // Pitched, the rows shift by the angle; about the upright axis and rolled much less.
  for (double const degrees : {0.003, 0.01, 0.03}) {
    ScanCheck const pitched = checkScan(turned({degrees, 0, 0}), maps.columns, maps.rows, sparse());
    EXPECT_EQ(pitched.verdict, ScanVerdict::Drifted) << degrees;
    double const focal = sim::demoRig().projector.device.matrix()(1, 1);
    EXPECT_NEAR(std::abs(pitched.mean), focal * degrees * radians, 0.1 * focal * degrees * radians);
    EXPECT_NEAR(pitched.smooth, std::abs(pitched.mean), 0.1 * pitched.smooth);
  }
  for (cv::Vec3d const& axis : {cv::Vec3d(0, 1, 0), cv::Vec3d(0, 0, 1)}) {
    EXPECT_EQ(checkScan(turned(0.03 * axis), maps.columns, maps.rows, sparse()).verdict, ScanVerdict::Drifted)
        << axis;
    EXPECT_EQ(checkScan(turned(0.0003 * axis), maps.columns, maps.rows, sparse()).verdict, ScanVerdict::Good)
        << axis;
  }
}

TEST(CheckScan, RepairsTheTurnAndNothingElse) {
  Maps const maps = noisyMaps(0.02);
  cv::Vec3d const degrees(0.03, -0.02, 0.01);
  Sl3dScanner scanner = turned(degrees);
  scanner.setCovariance({{"rx"}, cv::Mat(cv::Matx<double, 1, 1>(1e-10)), 0});
  ScanCheck const check = checkScan(scanner, maps.columns, maps.rows, sparse());
  ASSERT_EQ(check.verdict, ScanVerdict::Drifted);
  EXPECT_LT(check.smoothAfter, 0.001);
  for (int i = 0; i < 3; ++i) {
    double const error = check.turn[i] + degrees[i] * radians;
    EXPECT_LT(std::abs(error), 5 * check.turnSigma[i]) << i;
    EXPECT_LT(std::abs(error), 0.0005 * radians) << i;
  }
  Sl3dScanner const again = repaired(scanner, check);
  cv::Matx44d const left = again.getTransform() - turned({}).getTransform();
  EXPECT_LT(cv::norm(left, cv::NORM_INF), 1e-5);
  EXPECT_TRUE(again.getCovariance().isEmpty());
  EXPECT_EQ(again.getCameraModel().getK().at<double>(0, 0), scanner.getCameraModel().getK().at<double>(0, 0));
  EXPECT_EQ(checkScan(again, maps.columns, maps.rows, sparse()).verdict, ScanVerdict::Good);

  ScanCheck const good = checkScan(turned({}), maps.columns, maps.rows, sparse());
  expectError([&] { (void)repaired(scanner, good); }, "nothing to repair");

  // A zoom is no turn.
  nlohmann::json json;
  Sl3dScanner const exact = turned({});
  exact.write(json);
  for (std::size_t const i : {0U, 4U}) {
    json["ProjectorModel"]["K"]["data"][i] = 1.004 * json["ProjectorModel"]["K"]["data"][i].get<double>();
  }
  Sl3dScanner zoomed;
  zoomed.read(json);
  ScanCheck const other = checkScan(zoomed, maps.columns, maps.rows, sparse());
  EXPECT_EQ(other.verdict, ScanVerdict::Drifted);
  expectError([&] { (void)repaired(zoomed, other); }, "Something else has changed");
}

TEST(CheckScan, SaysWhenItCannotTell) {
  Maps const noisy = noisyMaps(0.6);
  ScanCheckSettings few;
  few.mostPixels = 5000;
  EXPECT_EQ(checkScan(turned({}), noisy.columns, noisy.rows, few).verdict, ScanVerdict::Unclear);
  Sl3dScanner const scanner = turned({});
  cv::Mat_<float> none = exactMaps().columns.clone();
  none.setTo(-1.0F);
  expectError([&] { (void)checkScan(scanner, exactMaps().columns, none); }, "too few");
  expectError([&] { (void)checkScan(scanner, exactMaps().columns, none(cv::Rect(0, 0, 9, 9))); },
              "camera has");
  expectError([&] { (void)checkScan(Sl3dScanner(), none, none); }, "not calibrated");
  few.mostPixels = 10;
  expectError([&] { (void)checkScan(scanner, none, none, few); }, "mostPixels");
  ScanCheckSettings loose;
  loose.limit = 0;
  expectError([&] { (void)checkScan(scanner, none, none, loose); }, "limit");
}

/// Half of the pixels have a column that is not theirs, in stripes, as when an image is in a wrong place:
/// what the others agree on says nothing of a scan.
TEST(CheckScan, ATornScanIsNoGoodOne) {
  Maps torn = noisyMaps(0.02);
  auto const tear = [&](int share) {
    for (int y = 0; y < torn.columns.rows; ++y) {
      for (int x = 0; x < torn.columns.cols; ++x) {
        float& column = torn.columns(y, x);
        column += column >= 0.0F && static_cast<int>(column) / 4 % 100 < share ? 32.0F : 0.0F;
      }
    }
  };
  tear(2);
  EXPECT_EQ(checkScan(turned({}), torn.columns, torn.rows, sparse()).verdict, ScanVerdict::Good);
  torn = noisyMaps(0.02);
  tear(40);
  ScanCheck const check = checkScan(turned({}), torn.columns, torn.rows, sparse());
  EXPECT_EQ(check.verdict, ScanVerdict::Unclear);
  EXPECT_TRUE(check.isTorn);
  expectError([&] { (void)repaired(turned({}), check); }, "nothing to repair");
}

} // namespace
} // namespace vorn::mv
