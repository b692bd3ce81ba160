// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The next view that is proposed, really added: by adjustments with it, their own predictions and their true
// errors.
#include <vorn/mv/scanner/next_view.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include "calib/adjustment_runs.hpp"
#include "calib/shared_errors.hpp"
#include "support/expect_error.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using vorn::test::AdjustmentRig;

constexpr int viewCount = 4;

AdjustmentRig noisyRig() {
  AdjustmentRig rig;
  rig.cameraNoise = 0.02;
  rig.projectorNoise = 0.008;
  rig.halfColumns = 4;
  rig.halfRows = 3;
  rig.pitch = 26;
  return rig;
}

Adjustment adjusted(AdjustmentRig const& rig, std::vector<AdjustmentView> const& views,
                    AdjustmentSettings::Shape shape = AdjustmentSettings::Shape::Flat) {
  AdjustmentSettings settings;
  settings.shape = shape;
  return adjustScanner(views, rig.sizeOf(rig.camera), rig.sizeOf(rig.projector), settings);
}

/// The views of the rig and one more.
std::vector<AdjustmentView> viewsWith(AdjustmentRig const& rig, cv::Matx44d const& pose, std::uint64_t seed) {
  std::vector<AdjustmentView> views = rig.views(viewCount, seed);
  cv::RNG rng(seed + 5000);
  views.push_back(rig.view(pose, rng));
  return views;
}

PredictedError predictionOf(Adjustment const& adjustment, WorkingVolume const& volume) {
  Sl3dScanner scanner;
  scanner.getCameraModel() = adjustment.models[0];
  scanner.getProjectorModel() = adjustment.models[1];
  scanner.setTransform(adjustment.transform);
  scanner.setCovariance(covarianceOf(adjustment));
  return PointUncertainty(scanner).over(volume);
}

/// The mean square of what an adjustment is truly wrong by in shape.
double trueRigid2(AdjustmentRig const& rig, Adjustment const& adjustment,
                  std::vector<cv::Vec3d> const& places) {
  SightGeometry const geometry(adjustment.models[0], adjustment.models[1], adjustment.transform,
                               MapCoordinate::Column);
  std::vector<cv::Vec3d> found;
  for (cv::Vec3d const& place : places) {
    cv::Vec2d const pixel = AdjustmentRig::imageOf(rig.camera, place);
    double const column = AdjustmentRig::imageOf(rig.projector, rig.inProjector(place))[0];
    found.push_back(geometry.pointOf({pixel[0], pixel[1]}, column));
  }
  return vorn::test::errorsOf(found, places).rigid2;
}

class NextBestView : public ::testing::Test {
protected:
  NextBestView() {
    Library::init();
    views = rig.views(viewCount);
    adjustment = adjusted(rig, views);
  }

  AdjustmentRig const rig = noisyRig();
  std::vector<AdjustmentView> views;
  Adjustment adjustment;
};

TEST_F(NextBestView, ForetellsWhatAnAdjustmentWithItPredicts) {
  WorkingVolume const volume = workingVolume(adjustment, views);
  NextView const next = nextBestView(adjustment, views);
  PredictedError const before = predictionOf(adjustment, volume);
  EXPECT_NEAR(next.before.rigid, before.rigid, 1e-6 * before.rigid);
  EXPECT_NEAR(next.before.bar, before.bar, 1e-6 * before.bar);

  std::vector<AdjustmentView> more = viewsWith(rig, next.cam_from_target, 1);
  auto const seen = std::count_if(more.back().points1.begin(), more.back().points1.end(),
                                  [](auto const& p) { return std::isfinite(p.x); });
  EXPECT_GE(seen, next.dotCount);
  EXPECT_LE(seen, next.dotCount + 8) << "but for some at the border";
  // The adjustment has another noise by chance, so the same is asked of it.
  Adjustment whole = adjusted(rig, more);
  double const noise = whole.noise.camera0 / adjustment.noise.camera0;
  PredictedError const after = predictionOf(whole, volume);
  EXPECT_NEAR(next.after.rigid * noise, after.rigid, 0.05 * after.rigid);
  EXPECT_NEAR(next.after.bar * noise, after.bar, 0.05 * after.bar);
  EXPECT_NEAR(next.after.raw * noise, after.raw, 0.08 * after.raw);
}

/// Errors that dots share with those around, in both devices.
void shareErrors(AdjustmentView& view, double pitch, cv::RNG& random) {
  for (int device = 0; device < 2; ++device) {
    vorn::test::addShared(view, 0.02, 1.5, pitch, random);
    std::swap(view.points0, view.points1);
  }
}

// A view whose errors neighbours share tells as little as those before it; a quarter less error was promised.
TEST_F(NextBestView, ForetellsLessWhereDotsShareErrors) {
  AdjustmentRig shared;
  shared.cameraNoise = 0.01;
  shared.projectorNoise = 0.01;
  constexpr int runs = 4;
  double foretold = 0;
  double then = 0;
  for (std::uint64_t run = 0; run < runs; ++run) {
    cv::RNG random(run + 1);
    std::vector<AdjustmentView> drawn = shared.views(7, 50 + run);
    for (AdjustmentView& view : drawn) {
      shareErrors(view, shared.pitch, random);
    }
    NextViewSettings settings;
    settings.volume = {420, 600};
    NextView const next = nextBestView(adjusted(shared, drawn), drawn, settings);
    drawn.push_back(shared.view(next.cam_from_target, random));
    shareErrors(drawn.back(), shared.pitch, random);
    foretold += next.after.rigid;
    then += predictionOf(adjusted(shared, drawn), settings.volume).rigid;
  }
  EXPECT_NEAR(foretold / then, 1, 0.15);
}

TEST_F(NextBestView, GainsMoreThanRandomViewsAndAsMuchAsForetold) {
  WorkingVolume const volume = workingVolume(adjustment, views);
  NextView const next = nextBestView(adjustment, views);
  ASSERT_LT(next.after.rigid, 0.8 * next.before.rigid);

  std::vector<double> random;
  std::vector<cv::Matx44d> const poses = AdjustmentRig::poses(viewCount + 9);
  for (std::size_t i = viewCount; i < poses.size(); ++i) {
    random.push_back(predictionOf(adjusted(rig, viewsWith(rig, poses[i], 1)), volume).rigid);
  }
  double const proposed = predictionOf(adjusted(rig, viewsWith(rig, next.cam_from_target, 1)), volume).rigid;
  EXPECT_LT(proposed, *std::min_element(random.begin(), random.end()));

  std::vector<cv::Vec3d> const places = vorn::test::placesIn(rig, volume, 150);
  constexpr int runs = 25;
  double before2 = 0;
  double after2 = 0;
  double randomAfter2 = 0;
  for (std::uint64_t run = 0; run < runs; ++run) {
    std::uint64_t const seed = 100 + run;
    before2 += trueRigid2(rig, adjusted(rig, rig.views(viewCount, seed)), places) / runs;
    after2 += trueRigid2(rig, adjusted(rig, viewsWith(rig, next.cam_from_target, seed)), places) / runs;
    randomAfter2 +=
        trueRigid2(rig, adjusted(rig, viewsWith(rig, poses[viewCount + run % 9], seed)), places) / runs;
  }
  double const gain = std::sqrt(after2 / before2);
  double const foretold = next.after.rigid / next.before.rigid;
  EXPECT_NEAR(gain, foretold, 0.25 * foretold);
  EXPECT_LT(after2, randomAfter2);
}

// The bow of a target takes a part of what views tell, before and with the next one.
TEST_F(NextBestView, CountsTheShapeOfABentTargetAsUnknown) {
  AdjustmentRig bentRig = noisyRig();
  bentRig.deviation = [](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.6 * dot[0] * dot[0] / 1e4); };
  std::vector<AdjustmentView> const bentViews = bentRig.views(viewCount);
  Adjustment const bentAdjustment = adjusted(bentRig, bentViews, AdjustmentSettings::Shape::Smooth);
  WorkingVolume const volume = workingVolume(bentAdjustment, bentViews);
  NextView const next = nextBestView(bentAdjustment, bentViews);
  EXPECT_NEAR(next.before.rigid, predictionOf(bentAdjustment, volume).rigid, 1e-6 * next.before.rigid);
  Adjustment const whole =
      adjusted(bentRig, viewsWith(bentRig, next.cam_from_target, 1), AdjustmentSettings::Shape::Smooth);
  double const noise = whole.noise.camera0 / bentAdjustment.noise.camera0;
  double const after = predictionOf(whole, volume).rigid;
  EXPECT_NEAR(next.after.rigid * noise, after, 0.08 * after);
  // A report tells the bow: 0.6 mm at 100 mm from the middle, over dots 26 mm apart, 4 to either side.
  ScannerCalibration calibration;
  calibration.report.devices = {{"camera", {}, 0, 0, false}, {"projector", {}, 0, 0, false}};
  calibration.report.adjustment = bentAdjustment;
  nlohmann::json const shape = toJson(calibration)["adjustment"]["shape"];
  EXPECT_EQ(shape["kind"], "smooth");
  EXPECT_NEAR(shape["sagX"].get<double>(), 0.6 * 104 * 104 / 1e4, 0.03);
  EXPECT_NEAR(shape["sagY"].get<double>(), 0, 0.03);
  EXPECT_NEAR(shape["twist"].get<double>(), 0, 0.03);
  // The squares of 0 to 4 dots have a standard deviation of 5.85.
  EXPECT_NEAR(shape["rms"].get<double>(), 0.6 * 26 * 26 * 5.85 / 1e4, 0.02);
}

TEST_F(NextBestView, StaysWhereBothSeeTheTarget) {
  NextViewSettings settings;
  settings.volume = {480, 520};
  settings.greatestTilt = 20;
  NextView const next = nextBestView(adjustment, views, settings);
  EXPECT_GE(next.distance, 480);
  EXPECT_LE(next.distance, 520);
  EXPECT_LE(next.tilt, 20);
  cv::Matx44d const& pose = next.cam_from_target;
  EXPECT_NEAR(pose(2, 2), std::cos(next.tilt * CV_PI / 180), 1e-9);
  // What the direction calls farther away is so.
  double const across = next.direction * CV_PI / 180;
  cv::Vec3d const inPlane = math::getR3(pose).t() * cv::Vec3d(std::cos(across), std::sin(across), 0);
  EXPECT_GE((math::getR3(pose) * cv::Vec3d(inPlane[0], inPlane[1], 0))[2], 0);
  cv::Vec2d const seen = AdjustmentRig::imageOf(rig.camera, math::getT3(pose));
  EXPECT_NEAR(seen[0], next.pixel.x, 3);
  EXPECT_NEAR(seen[1], next.pixel.y, 3);
  // A report says the same: the middle is seen where its pose puts it.
  ScannerCalibration calibration;
  calibration.report.nextView = next;
  nlohmann::json const told = toJson(calibration)["nextView"];
  auto const place = [&](int row) { return told["cameraFromTarget"][row][3].get<double>(); };
  cv::Vec2d const toldAt = AdjustmentRig::imageOf(rig.camera, {place(0), place(1), place(2)});
  EXPECT_NEAR(toldAt[0], told["pixel"][0].get<double>(), 3);
  EXPECT_NEAR(toldAt[1], told["pixel"][1].get<double>(), 3);
  NextView const again = nextBestView(adjustment, views, settings);
  EXPECT_EQ(again.cam_from_target, next.cam_from_target);
  EXPECT_EQ(again.after.rigid, next.after.rigid);
}

TEST_F(NextBestView, RefusesWhatCannotBe) {
  auto const refused = [&](NextViewSettings const& settings, char const* word) {
    vorn::test::expectError([&] { (void)nextBestView(adjustment, views, settings); }, word);
  };
  NextViewSettings settings;
  settings.greatestTilt = 80;
  refused(settings, "greatestTilt");
  settings = {};
  settings.barLength = 0;
  refused(settings, "barLength");
  settings = {};
  settings.volume = {500, 400};
  refused(settings, "depths");
  settings.volume = {1, 1.5};
  refused(settings, "both");
  settings.volume = {150, 160}; // where the target is larger than the image
  refused(settings, "No pose");
  settings.volume = {240, 250}; // where it is so for the projector
  refused(settings, "No pose");
  vorn::test::expectError([&] { (void)nextBestView(adjustment, {}, {}); }, "views");
  Adjustment single = adjustment;
  single.isRead = false;
  vorn::test::expectError([&] { (void)nextBestView(single, views, {}); }, "scanner");
  int const stops = vorn::test::stopEverywhere(
      [&](vorn::test::Watching& observer) { (void)nextBestView(adjustment, views, {}, &observer); }, [] {});
  EXPECT_GT(stops, 3);
}

} // namespace
} // namespace vorn::mv
