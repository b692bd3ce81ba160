// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/pattern_scanner.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "sim/map_comparison.hpp"
#include "sim/target.hpp"
#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

sim::Rig rig() {
  return sim::demoRig(2);
}

/// With white and black images beside the bits.
PatternSet setOf(std::string const& name, PatternAxes axes = PatternAxes::Both) {
  PatternSetOptions options;
  options.axes = axes;
  options.hasInverses = name != "gray-phase";
  return PatternSet::builtIn(name, rig().projector.device.resolution(), options);
}

std::vector<cv::Mat> imagesOf(PatternSet const& set, sim::Scene const& scene) {
  sim::RenderOptions options;
  options.supersample = 1;
  return sim::ProjectorView(rig().camera, rig().projector, scene, options).capture(set.generate());
}

std::vector<PatternView> targetViews(PatternSet const& set) {
  std::vector<PatternView> views;
  for (std::size_t i = 0; i < 4; ++i) {
    PatternView view;
    view.name = "view " + std::to_string(i);
    view.images =
        imagesOf(set, sim::Scene({sim::targetObject(sim::demoTarget(), sim::demoTargetPoses()[i])}));
    views.push_back(view);
  }
  return views;
}

CalibrationSettings calibrationSettings() {
  CalibrationSettings result;
  result.detector["PatternDim"] = 15.0;
  result.detector["MinDotArea"] = 20.0;
  return result;
}

/// Captured and decoded once.
DecodedPatterns const& demoDecoded() {
  static DecodedPatterns const decoded = [] {
    PatternSet const set = setOf("gray-phase");
    return decode_patterns(set, imagesOf(set, sim::demoScene()));
  }();
  return decoded;
}

PatternScanner exactScanner(PatternScanSettings const& settings = {}) {
  return {setOf("gray-phase"), test::scannerOf(rig()), settings};
}

TEST(PatternScanner, CalibratesTheRigFromImagesOfAnySet) {
  PatternSet const set = setOf("gray-phase");
  std::vector<PatternView> views = targetViews(set);
  // One view of another set, with its target beside it.
  PatternSet const other = setOf("multi-frequency");
  cv::Mat const target = views[3].images[static_cast<std::size_t>(
      std::find_if(set.images.begin(), set.images.end(),
                   [](PatternImage const& image) { return image.role == PatternRole::White; }) -
      set.images.begin())];
  views[3] = targetViews(other)[3];
  views[3].target = target;
  views[3].set = other;
  Library::init();
  PatternScanner scanner(set);
  ScannerCalibration const calibration = scanner.calibrate(views, calibrationSettings());
  cv::Vec3d const base(scanner.scanner().getTransform().col(3).val);
  EXPECT_LT(cv::norm(base - rig().projector.world_from_proj.translation), 2.0) << "mm of 200";
  EXPECT_FALSE(calibration.report.isProjectorGuessed);
  EXPECT_EQ(calibration.report.devices.at(1).resolution, rig().projector.device.resolution());
  for (CalibratedView const& view : calibration.views) {
    EXPECT_TRUE(view.isUsed()) << view.reason;
    for (ViewPoints const& device : view.devices) {
      EXPECT_GT(device.imgPnts.size(), 200U);
      EXPECT_LT(rms(device.residuals), 0.06);
    }
  }
}

TEST(PatternScanner, ViewsThatDoNotServeSayWhy) {
  std::vector<PatternView> views(3);
  PatternSet other = setOf("gray-phase");
  other.projector = {400, 200};
  views[0] = {"far", {}, {}, other};
  views[1] = {"half", {}, {}, setOf("gray-phase", PatternAxes::Rows)};
  views[2] = {"bare", {}, {}, setOf("multi-frequency")};
  PatternScanner scanner(setOf("gray-phase"));
  for (char const* const part :
       {"far: its pattern set is for a projector of 400 x 200 pixels",
        "half: the pattern set codes no columns", "bare: there is no target image"}) {
    expectError([&] { scanner.calibrate(views, calibrationSettings()); }, part);
  }
  CalibrationSettings settings = calibrationSettings();
  settings.projector = {10, 10};
  expectError([&] { scanner.calibrate(views, settings); }, "456 x 285 pixels, not of 10 x 10");
}

/// Points lie where the scene is, and both coordinates agree as well as their noise lets them.
TEST(PatternScanner, PointsLieOnTheSceneAndCoordinatesAgreeWithinTheirNoise) {
  PatternScanner scanner = exactScanner();
  PatternScanResult const result = scanner.triangulate(demoDecoded());
  sim::Truth const truth = sim::truth(rig().camera, rig().projector, sim::demoScene());
  std::vector<double> errors;
  for (int y = 0; y < result.xyz.rows; ++y) {
    for (int x = 0; x < result.xyz.cols; ++x) {
      cv::Vec3f const& p = result.xyz(y, x);
      if (result.mask(y, x) == 0 && truth.edge(y, x) == 0 && !std::isnan(truth.x_in_cam(y, x)[2])) {
        errors.push_back(cv::norm(cv::Vec3d(p) - cv::Vec3d(truth.x_in_cam(y, x))));
      }
    }
  }
  std::sort(errors.begin(), errors.end());
  ASSERT_GT(errors.size(), result.counts.pixels * 2 / 5);
  EXPECT_LT(errors[errors.size() / 2], 0.1) << "mm of 560";
  EXPECT_LT(errors[errors.size() * 99 / 100], 0.5);
  EpipolarFigures const& e = result.agreement;
  EXPECT_LT(e.rejected, e.pixels / 200);
  EXPECT_EQ(result.counts.of(PixelReason::Contradiction), e.rejected);
  EXPECT_NEAR(e.median, 0.0, 0.01);
  EXPECT_NEAR(e.deviation / e.foretold, 1.0, 0.15);
  EXPECT_GT(e.rms, e.deviation);
  EXPECT_GT(result.times.triangulate, 0.0);
  EXPECT_EQ(result.fringes.size(), 2U);
}

/// Of coordinates that are off, the least distance to the places where the projector sees the pixel's ray at
/// any depth: by OpenCV's own distortion model, and by trying.
double distanceByTrying(cv::Point2d const& pixel, cv::Point2d const& projectorPoint) {
  sim::Device const& camera = rig().camera.device;
  sim::Device const& projector = rig().projector.device;
  auto const straight = [](sim::Device const& device, cv::Point2d const& point, cv::Mat const& into) {
    std::vector<cv::Point2d> out;
    cv::undistortPoints(std::vector<cv::Point2d>{point}, out, cv::Mat(device.matrix()),
                        cv::Mat(1, 5, CV_64F, const_cast<double*>(device.distortion().data())), cv::noArray(),
                        into, cv::TermCriteria(cv::TermCriteria::COUNT, 60, 0.0));
    return out[0];
  };
  cv::Point2d const ray = straight(camera, pixel, cv::Mat::eye(3, 3, CV_64F));
  cv::Point2d const seen = straight(projector, projectorPoint, cv::Mat(projector.matrix()));
  cv::Matx44d const projFromWorld = rig().projector.world_from_proj.matrix().inv();
  double least = std::numeric_limits<double>::infinity();
  cv::Matx33d const k = projector.matrix();
  for (double depth = 300; depth < 1200; depth *= 1.00002) {
    cv::Vec4d const p = projFromWorld * cv::Vec4d(ray.x * depth, ray.y * depth, depth, 1.0);
    cv::Point2d const image(k(0, 0) * p[0] / p[2] + k(0, 2), k(1, 1) * p[1] / p[2] + k(1, 2));
    least = std::min(least, cv::norm(image - seen));
  }
  return least;
}

TEST(PatternScanner, TheResidualIsTheDistanceFromTheLineOfTheRay) {
  DecodedPatterns off = demoDecoded();
  off.column = off.column.clone();
  off.row = off.row.clone();
  std::vector<cv::Point> places;
  for (int y = 40; y < off.row.rows; y += 90) {
    for (int x = 40; x < off.row.cols; x += 120) {
      if (off.column(y, x) > 20 && off.row(y, x) > 20) {
        off.column(y, x) += static_cast<float>(x % 7);
        off.row(y, x) += static_cast<float>(y % 5) - 7.3F;
        places.emplace_back(x, y);
      }
    }
  }
  ASSERT_GT(places.size(), 10U);
  PatternScanSettings keeping;
  keeping.mostEpipolar = std::numeric_limits<double>::infinity();
  PatternScanner scanner = exactScanner(keeping);
  PatternScanResult const result = scanner.triangulate(off);
  EXPECT_EQ(result.agreement.rejected, 0U);
  for (cv::Point const& p : places) {
    EXPECT_NEAR(static_cast<double>(std::fabs(result.epipolar(p))),
                distanceByTrying(p, {static_cast<double>(off.column(p)), static_cast<double>(off.row(p))}),
                0.02)
        << p;
  }
}

TEST(PatternScanner, ContradictionsHaveNoPoint) {
  DecodedPatterns wrong = demoDecoded();
  wrong.row = wrong.row.clone();
  cv::Rect const patch(300, 220, 40, 30);
  std::size_t changed = 0;
  for (int y = patch.y; y < patch.br().y; ++y) {
    for (int x = patch.x; x < patch.br().x; ++x) {
      if (wrong.row(y, x) > 8 && wrong.column(y, x) >= 0) {
        wrong.row(y, x) += 8.0F; // an order
        ++changed;
      }
    }
  }
  ASSERT_GT(changed, 1000U);
  PatternScanner scanner = exactScanner();
  PatternScanResult const right = scanner.triangulate(demoDecoded());
  PatternScanResult const result = scanner.triangulate(wrong);
  std::size_t const before = right.agreement.rejected;
  EXPECT_GE(result.agreement.rejected, changed);
  EXPECT_LE(result.agreement.rejected, changed + before);
  EXPECT_EQ(result.mask(patch.y + 15, patch.x + 20), static_cast<uchar>(PixelReason::Contradiction));
  EXPECT_TRUE(std::isnan(result.xyz(patch.y + 15, patch.x + 20)[2]));
  EXPECT_GT(demoDecoded().column(patch.y + 15, patch.x + 20), 0.0F) << "the decoded maps are the caller's";
}

TEST(PatternScanner, OneCoordinateMakesPointsWithoutJudgement) {
  PatternSet const set = setOf("multi-frequency", PatternAxes::Columns);
  PatternScanner scanner(set, test::scannerOf(rig()));
  PatternScanResult const result = scanner.scan(imagesOf(set, sim::demoScene()));
  EXPECT_GT(result.counts.points, result.counts.pixels / 2);
  EXPECT_TRUE(result.epipolar.empty());
  EXPECT_EQ(result.agreement.pixels, 0U);
  PatternScanSettings settings;
  settings.mostEpipolar = 0.0;
  expectError([&] { exactScanner(settings); }, "mostEpipolar is 0");
}

TEST(PatternScanner, TakesMapsWithoutSigmasAndRefusesThoseThatDoNotFit) {
  PatternScanResult const whole = exactScanner().triangulate(demoDecoded());
  DecodedPatterns decoded = demoDecoded();
  decoded.sigmaRow.release();
  PatternScanResult const result = exactScanner().triangulate(decoded);
  EXPECT_EQ(result.agreement.pixels, whole.agreement.pixels);
  EXPECT_GE(result.agreement.rejected, whole.agreement.rejected) << "no noise excuses";
  EXPECT_EQ(result.agreement.foretold, 0.0);
  decoded = demoDecoded();
  decoded.sigmaColumn.setTo(std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(exactScanner().triangulate(decoded).agreement.rejected, result.agreement.rejected);

  auto const expectRefused = [](std::string const& part, auto const& change) {
    DecodedPatterns other = demoDecoded();
    change(other);
    expectError([&] { exactScanner().triangulate(other); }, part);
    other.row.release(); // so that nothing is judged
    other.sigmaRow.release();
    Sl3dScanner scanner = exactScanner().scanner();
    expectError([&] { scanDecoded(scanner, other); }, part);
  };
  cv::Rect const half(0, 0, 100, 100);
  expectRefused("100 x 100", [&](DecodedPatterns& other) { other.sigmaColumn = other.sigmaColumn(half); });
  expectRefused("mask", [&](DecodedPatterns& other) { other.mask.release(); });
  expectRefused("mask", [&](DecodedPatterns& other) { other.mask = other.mask(half); });
  expectRefused("modulation", [&](DecodedPatterns& other) { other.modulation.release(); });
  DecodedPatterns other = demoDecoded();
  other.row = other.row(half);
  expectError([&] { exactScanner().triangulate(other); }, "\"row\" is 100 x 100");
}

TEST(PatternScanner, StopsBetweenBandsAndScansAllTheSame) {
  PatternScanner scanner = exactScanner();
  vorn::test::Watching first(3);
  EXPECT_THROW(scanner.triangulate(demoDecoded(), &first), Cancelled);
  vorn::test::Watching all;
  EXPECT_GT(scanner.triangulate(demoDecoded(), &all).counts.points, 0U);
  EXPECT_EQ(all.fraction, 1.0);
}

} // namespace
} // namespace vorn::mv
