// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Calibrations of two cameras and of a laser, and laser scans: stopped at any question they leave nothing
// behind, and threads do not matter.
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/scanner/calibrate_laser.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>
#include <vorn/mv/scanner/scan_laser.hpp>

#include "sim/laser.hpp"
#include "sim/render.hpp"
#include "sim/target.hpp"
#include "sim/truth_json.hpp"
#include "support/scanner_rig.hpp"
#include "support/target_photos.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

constexpr int viewCount = 4;

CalibrationSettings settings() {
  CalibrationSettings result;
  result.detector["PatternDim"] = 15.0;
  result.detector["MinDotArea"] = 20.0;
  return result;
}

sim::RenderOptions options() {
  sim::RenderOptions result;
  result.supersample = 1;
  return result;
}

sim::Scene targetAt(int view) {
  return sim::Scene(
      {sim::targetObject(sim::demoTarget(), sim::demoTargetPoses()[static_cast<std::size_t>(view)])});
}

/// What a camera sees of a scene under white light.
cv::Mat photo(sim::Camera const& camera, sim::Projector const& lamp, sim::Scene const& scene) {
  cv::Mat const white(lamp.device.resolution(), CV_8U, cv::Scalar(255));
  return sim::ProjectorView(camera, lamp, scene, options()).capture({white})[0];
}

std::vector<StereoView> const& stereoViews() {
  static std::vector<StereoView> const views = [] {
    Library::init();
    sim::StereoRig const rig = sim::demoStereoRig(2);
    std::vector<StereoView> made;
    for (int i = 0; i < viewCount; ++i) {
      made.push_back(
          {"view " + std::to_string(i),
           {photo(rig.camera0, rig.lamp, targetAt(i)), photo(rig.camera1, rig.lamp, targetAt(i))}});
    }
    return made;
  }();
  return views;
}

std::vector<LaserView> const& laserViews() {
  static std::vector<LaserView> const views = [] {
    Library::init();
    sim::LaserRig const rig = sim::demoLaserRig(2);
    std::vector<LaserView> made;
    for (int i = 0; i < viewCount; ++i) {
      made.push_back({"view " + std::to_string(i),
                      photo(rig.camera, rig.lamp, targetAt(i)),
                      {sim::captureLasers(rig.camera, rig.lasers, targetAt(i), i, options())}});
    }
    return made;
  }();
  return views;
}

LineScanner laserScanner() {
  LineScanner scanner;
  scanner.read(sim::laserJson(sim::demoLaserRig(2)));
  return scanner;
}

std::vector<cv::Mat> const& laserImages() {
  static std::vector<cv::Mat> const images = [] {
    sim::LaserRig const rig = sim::demoLaserRig(2);
    std::vector<cv::Mat> made;
    for (int i = 0; i < 3; ++i) {
      made.push_back(sim::captureLasers(rig.camera, rig.lasers, sim::demoScene(), i, options()));
    }
    return made;
  }();
  return images;
}

nlohmann::json written(Calibration const& calibration, IJsonSerializable const& object) {
  nlohmann::json json;
  object.write(json);
  return {json, toJson(calibration)};
}

nlohmann::json calibratedStereo(Observer* observer = nullptr) {
  StereoCalibration const calibration = calibrateStereo(stereoViews(), settings(), observer);
  return written(calibration, calibration.object);
}

nlohmann::json calibratedLaser(Observer* observer = nullptr) {
  LaserCalibration const calibration = calibrateLaser(laserViews(), settings(), observer);
  return written(calibration, calibration.object);
}

nlohmann::json scannedLaser(Observer* observer = nullptr) {
  LineScanner const scanner = laserScanner();
  LaserScanResult const scan = scanLaser(scanner, laserImages(), {{0, 4, 1}, {}}, {}, observer);
  nlohmann::json points = nlohmann::json::array();
  for (cv::Vec3f const& p : scan.cloud.points()) {
    points.push_back({p[0], p[1], p[2]});
  }
  return points;
}

struct Job {
  char const* name;
  nlohmann::json (*run)(Observer*);
  std::size_t leastSize; ///< of what it gives
};

class LongJob : public testing::TestWithParam<Job> {};

TEST_P(LongJob, ThreadsDoNotMatter) {
  int const threads = cv::getNumThreads();
  std::vector<nlohmann::json> results;
  for (int const count : {1, 2, 8}) {
    cv::setNumThreads(count);
    results.push_back(GetParam().run(nullptr));
  }
  cv::setNumThreads(threads);
  EXPECT_GE(results[0].size(), GetParam().leastSize);
  EXPECT_EQ(results[1], results[0]);
  EXPECT_EQ(results[2], results[0]);
}

TEST_P(LongJob, StopsAtTheQuestionAndGivesTheSameAfterwards) {
  vorn::test::Watching all;
  nlohmann::json const watched = GetParam().run(&all);
  EXPECT_EQ(all.fraction, 1.0);
  EXPECT_EQ(watched, GetParam().run(nullptr)) << "being watched changes nothing";
  ASSERT_GT(all.asked, 8);
  // Some of all questions, the first and the last among them.
  for (int const questions : {0, 1, all.asked / 4, all.asked / 2, all.asked - 2, all.asked - 1}) {
    vorn::test::Watching observer(questions);
    EXPECT_THROW(GetParam().run(&observer), Cancelled) << questions;
    EXPECT_EQ(observer.asked, questions + 1) << "asked again after a stop";
  }
  EXPECT_EQ(watched, GetParam().run(nullptr));
}

INSTANTIATE_TEST_SUITE_P(Jobs, LongJob,
                         testing::Values(Job{"CalibrateStereo", calibratedStereo, 2},
                                         Job{"CalibrateLaser", calibratedLaser, 2},
                                         Job{"ScanLaser", scannedLaser, 300}),
                         [](auto const& given) { return given.param.name; });

/// Between its stages and within them: a photograph without a target is searched to the end.
TEST(DetectTarget, StopsAtAnyQuestionAndIsTheSameWatched) {
  Library::init();
  cv::Mat const image = sim::render(vorn::test::targetPhoto(16, 25, 40, 20));
  cv::Mat noise(480, 640, CV_8U);
  cv::randu(noise, 0, 256);
  TargetDescription target;
  target.pitch = 15;
  for (cv::Mat const& given : {image, noise}) {
    Detection const expected = detectTarget(given, target);
    Detection found;
    int const stops = vorn::test::stopEverywhere(
        [&](Observer& observer) { found = detectTarget(given, target, {}, &observer); },
        [&] { EXPECT_TRUE(found.isEmpty() && found.reason.empty()); });
    EXPECT_GT(stops, 10);
    EXPECT_EQ(found.reason, expected.reason);
    ASSERT_EQ(found.keyPoints.size(), expected.keyPoints.size());
    for (std::size_t i = 0; i < found.keyPoints.size(); ++i) {
      EXPECT_EQ(found.keyPoints[i].imgPnt, expected.keyPoints[i].imgPnt);
    }
  }
}

} // namespace
} // namespace vorn::mv
