// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "sim/map_comparison.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using scanner::ScannerType;
using test::captured;
using test::patternsOf;
using test::scannerOf;

/// What a rendered scan must reach.
constexpr double errorOverBound = 1.05;
constexpr double leastComplete = 0.995;
constexpr double mostOrderErrors = 1e-5;

/// A rendered scan with its truth.
struct Scan {
  sim::Rig rig;
  sim::MapAxis axis;
  std::vector<cv::Mat> images;
  sim::Truth truth;
  sim::Signal signal;
  cv::Mat_<uchar> clean;
  Sl3dScanner scanner;

  Scan(sim::Rig const& rig_, sim::Scene const& scene, ScannerType::Item type = ScannerType::Horizontal)
      : rig(rig_), axis(type == ScannerType::Horizontal ? sim::MapAxis::Column : sim::MapAxis::Row),
        truth(sim::truth(rig.camera, rig.projector, scene)), scanner(scannerOf(rig)) {
    sim::ProjectorView const view(rig.camera, rig.projector, scene);
    auto const patterns = patternsOf(rig, type);
    images = view.capture(patterns);
    signal = sim::signal(rig.camera.sensor, view.expose({patterns.begin(), patterns.begin() + 4}));
    clean = sim::truthMask(truth, signal) == static_cast<int>(sim::TruthMask::Clean);
    for (int row : rig.camera.sensor.deadRows) {
      clean.row(row).setTo(0);
    }
    scanner["ScannerType"] = ScannerType(type);
  }
};

sim::MapComparison judge(Scan const& scan, cv::Mat_<float> const& map) {
  return sim::compareMap(map, scan.truth, scan.signal, scan.clean, scan.axis);
}

/// A way in which a scan can be harder than the plain one.
struct Difficulty {
  std::string name;
  std::function<void(sim::Rig&)> change;
  ScannerType::Item type = ScannerType::Horizontal;
};

void turnToRows(sim::Rig& rig) {
  rig.projector.world_from_proj = sim::Pose::fromDegrees({-12, -198, 18}, {-19.6, -1.4, 0.7});
}

void makeNoisy(sim::Rig& rig) {
  rig.camera.sensor.fullWell = 3000;
  rig.camera.sensor.readNoise = 20;
}

Difficulty const difficulties[] = {{"Plain", [](sim::Rig&) {}},
                                   {"StrongNoise", makeNoisy},
                                   {"Flicker", [](sim::Rig& rig) { rig.camera.sensor.flicker = 0.03; }},
                                   {"GlobalAndAmbientLight",
                                    [](sim::Rig& rig) {
                                      rig.projector.globalLight = 0.3;
                                      rig.camera.sensor.ambient = 0.2;
                                    }},
                                   {"DeadRows",
                                    [](sim::Rig& rig) {
                                      rig.camera.sensor.deadRows = {10, 50, 51, 120};
                                    }},
                                   {"Rows", turnToRows, ScannerType::Vertical},
                                   {"NoisyRows",
                                    [](sim::Rig& rig) {
                                      turnToRows(rig);
                                      makeNoisy(rig);
                                    },
                                    ScannerType::Vertical}};

class DecodeUnder : public testing::TestWithParam<Difficulty> {};

TEST_P(DecodeUnder, IsExactCompleteAndOfTheRightOrder) {
  sim::Rig rig = sim::demoRig(2);
  GetParam().change(rig);
  Scan scan(rig, sim::demoScene(), GetParam().type);
  for (int fillRadius : {9, 0}) {
    scan.scanner["MaxFillRadius"] = fillRadius;
    sim::MapComparison const outcome = judge(scan, scan.scanner.decode(scan.images));
    ASSERT_GT(outcome.clean, 10000);
    EXPECT_LE(outcome.overBound(), errorOverBound);
    EXPECT_GE(outcome.cleanReturned, leastComplete * outcome.clean);
    EXPECT_LE(outcome.orderErrors, mostOrderErrors * outcome.returned);
  }
}

INSTANTIATE_TEST_SUITE_P(Scans, DecodeUnder, testing::ValuesIn(difficulties),
                         [](auto const& given) { return given.param.name; });

/// A plane that fills the view.
Scan planeScan() {
  sim::Object plane;
  plane.shape = sim::Rectangle{{900, 900}};
  plane.world_from_object = sim::Pose::fromDegrees({0, 0, 560}, {4, -3, 0});
  return Scan(sim::demoRig(4), sim::Scene({plane}));
}

TEST(Decode, ReachesTheImagesBorder) {
  Scan scan = planeScan();
  cv::Mat_<float> const map = scan.scanner.decode(scan.images);
  int missing = 0;
  for (int x = 0; x < map.cols; ++x) {
    missing += scan.truth.projector(0, x)[0] > 0 && map(0, x) < 0 ? 1 : 0;
  }
  for (int y = 0; y < map.rows; ++y) {
    missing += scan.truth.projector(y, 0)[0] > 0 && map(y, 0) < 0 ? 1 : 0;
  }
  // Where the projector's own border crosses the image's, a pixel or two are lit in part.
  EXPECT_LE(missing, 4);
}

TEST(Decode, DropsSaturatedAndDarkPixelsAndFillsOnlySmallHoles) {
  Scan scan = planeScan();
  cv::Point const clipped(100, 120);
  cv::Point const dark(150, 120);
  cv::Point const wide(210, 120);
  for (cv::Mat& image : scan.images) {
    cv::circle(image, clipped, 4, cv::Scalar(255), cv::FILLED);
    cv::circle(image, dark, 4, cv::Scalar(6), cv::FILLED);
    cv::circle(image, wide, 14, cv::Scalar(6), cv::FILLED);
  }
  scan.scanner["MaxFillRadius"] = 0;
  cv::Mat_<float> const unfilled = scan.scanner.decode(scan.images);
  EXPECT_EQ(unfilled(clipped), -1.0F);
  EXPECT_EQ(unfilled(dark), -1.0F);
  EXPECT_EQ(unfilled(wide), -1.0F);
  scan.scanner["MaxFillRadius"] = 9;
  cv::Mat_<float> const filled = scan.scanner.decode(scan.images);
  // A plane is smooth: what is filled in is as good as measured.
  constexpr float noise = 0.1F;
  EXPECT_NEAR(filled(clipped), scan.truth.projector(clipped)[0], noise);
  EXPECT_NEAR(filled(dark), scan.truth.projector(dark)[0], noise);
  EXPECT_EQ(filled(wide), -1.0F);
  EXPECT_GE(scan.truth.projector(wide)[0], 0.0F);
}

TEST(Decode, PropertiesDropWhatTheySay) {
  Scan scan = planeScan();
  auto const returned = [&] { return cv::countNonZero(scan.scanner.decode(scan.images) >= 0.0F); };
  int const all = returned();
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(cv::Mat(scan.signal.amplitude), mean, deviation);
  ASSERT_GT(mean[0], 20);
  auto const amplitudeBelow = [&](double limit) {
    return cv::countNonZero((scan.signal.amplitude < limit) & (scan.clean != 0));
  };
  scan.scanner["MaxFillRadius"] = 0;
  scan.scanner["Sensitivity"] = 20;
  EXPECT_LT(returned(), all - amplitudeBelow(18));
  scan.scanner["Sensitivity"] = 3;
  // Where the lamp's light comes in aslant and the defocus is worst, black and white differ by less than 100.
  scan.scanner["BlackWhiteSensitivity"] = 100;
  EXPECT_LT(returned(), all - all / 10);
  scan.scanner["BlackWhiteSensitivity"] = 15;
  cv::Rect const patch(100, 60, 60, 60);
  for (int k = 0; k < 4; ++k) {
    scan.images[static_cast<std::size_t>(k)](patch) += cv::Scalar(40);
  }
  scan.scanner["MaxGrayLevel"] = 200;
  EXPECT_GT(cv::countNonZero(scan.scanner.decode(scan.images)(patch) >= 0.0F), 0);
  scan.scanner["MaxGrayLevel"] = 100;
  EXPECT_EQ(cv::countNonZero(scan.scanner.decode(scan.images)(patch) >= 0.0F), 0);
}

TEST(Decode, SmallPiecesAreDropped) {
  Scan scan = planeScan();
  for (cv::Mat& image : scan.images) {
    cv::Mat const piece = image(cv::Rect(100, 100, 9, 9)).clone();
    image(cv::Rect(60, 60, 89, 89)).setTo(6);
    piece.copyTo(image(cv::Rect(100, 100, 9, 9)));
  }
  EXPECT_EQ(scan.scanner.decode(scan.images)(104, 104), -1.0F);
  scan.scanner["MinSegmentSize"] = 10;
  EXPECT_NEAR(scan.scanner.decode(scan.images)(104, 104), scan.truth.projector(104, 104)[0], 0.1F);
}

TEST(Decode, BlurSmoothsThePhase) {
  sim::Rig rig = sim::demoRig(2);
  makeNoisy(rig);
  Scan scan(rig, sim::demoScene());
  sim::MapComparison const sharp = judge(scan, scan.scanner.decode(scan.images));
  // Nine pixels make it a third and twenty-five a fifth on a plane; curved surfaces gain less. A fringe is
  // six pixels wide here: what averages across it without regard to its run loses at the second radius.
  for (auto const& [radius, share] : {std::pair(1, 0.4), std::pair(2, 0.3)}) {
    scan.scanner["PhaseBlurRadius"] = radius;
    sim::MapComparison const smooth = judge(scan, scan.scanner.decode(scan.images));
    EXPECT_GE(smooth.cleanReturned, leastComplete * smooth.clean);
    EXPECT_LE(smooth.orderErrors, mostOrderErrors * smooth.returned);
    EXPECT_LT(smooth.overBound(), share * sharp.overBound()) << "radius " << radius;
  }
}

TEST(Decode, IsTheSameForViewsThreadsAndReusedMemory) {
  Scan scan(sim::demoRig(4), sim::demoScene());
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  cv::Mat_<float> const first = scan.scanner.decode(scan.images);
  cv::setNumThreads(threads);
  std::vector<cv::Mat> views;
  for (cv::Mat const& image : scan.images) {
    cv::Mat larger(image.rows + 5, image.cols + 7, CV_8UC1, cv::Scalar(77));
    views.push_back(larger(cv::Rect({3, 2}, image.size())));
    image.copyTo(views.back());
  }
  EXPECT_EQ(cv::norm(cv::Mat(first), cv::Mat(scan.scanner.decode(views)), cv::NORM_INF), 0.0);
  // Another scan in between leaves nothing behind, and the map that was returned first stays as it is.
  cv::Mat const kept = first.clone();
  scan.scanner.decode(std::vector<cv::Mat>(scan.images.rbegin(), scan.images.rend()));
  EXPECT_EQ(cv::norm(cv::Mat(first), kept, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(cv::Mat(first), cv::Mat(scan.scanner.decode(scan.images)), cv::NORM_INF), 0.0);
}

TEST(Decode, LeavesNothingOfImagesOfAnotherSize) {
  Scan scan(sim::demoRig(4), sim::demoScene());
  cv::Mat const expected = scan.scanner.decode(scan.images);
  // A wider camera, then the first one again, with the same scanner.
  cv::Size const size = scan.images[0].size();
  std::vector<cv::Mat> wide;
  for (cv::Mat const& image : scan.images) {
    cv::Mat two;
    cv::hconcat(image, image, two);
    wide.push_back(two);
  }
  auto const setWidth = [&](int width) {
    nlohmann::json model;
    scan.scanner.getCameraModel().write(model);
    model["Resolution"] = cv::Size(width, size.height);
    scan.scanner.getCameraModel().read(model);
  };
  setWidth(2 * size.width);
  cv::Mat_<float> const both = scan.scanner.decode(wide);
  // Away from the seam each half is the scan; what is made up for flicker differs by a little.
  cv::Rect const inside(20, 0, size.width - 40, size.height);
  EXPECT_LT(cv::countNonZero(cv::abs(both(inside) - expected(inside)) > 1e-3), 20);
  setWidth(size.width);
  EXPECT_EQ(cv::norm(cv::Mat(scan.scanner.decode(scan.images)), expected, cv::NORM_INF), 0.0);
}

TEST(Decode, APixelInAHoleIsAskedOnlyWhenItsFringesAreStrongEnough) {
  Scan scan = planeScan();
  scan.scanner["Sensitivity"] = 10;
  cv::Point const centre(150, 120);
  // The fringes of a few pixels, with an amplitude of 7 and turned by half a period: they would contradict.
  for (int y = centre.y - 2; y <= centre.y + 2; ++y) {
    for (int x = centre.x - 2; x <= centre.x + 2; ++x) {
      double const column = scan.truth.projector(y, x)[0];
      for (std::size_t k = 0; k < 4; ++k) {
        double const phase = 2 * CV_PI * column / 4 + static_cast<double>(k) * CV_PI / 2 + CV_PI;
        scan.images[k].at<uchar>(y, x) = cv::saturate_cast<uchar>(60 + 7 * std::sin(phase));
      }
    }
  }
  cv::Mat_<float> const map = scan.scanner.decode(scan.images);
  constexpr float noise = 0.1F;
  EXPECT_NEAR(map(centre), scan.truth.projector(centre)[0], noise);
  scan.scanner["Sensitivity"] = 3;
  EXPECT_EQ(scan.scanner.decode(scan.images)(centre), -1.0F);
}

TEST(Decode, NoiseInTheDarkIsNoSurface) {
  sim::Rig const rig = sim::demoRig(4);
  Sl3dScanner scanner = scannerOf(rig);
  cv::RNG random(1);
  for (double sigma : {1.0, 3.0, 6.0}) {
    std::vector<cv::Mat> images;
    for (int k = 0; k < 11; ++k) {
      cv::Mat_<float> noise(rig.camera.device.resolution());
      random.fill(noise, cv::RNG::NORMAL, 20.0, sigma);
      cv::Mat image;
      noise.convertTo(image, CV_8U);
      images.push_back(image);
    }
    EXPECT_EQ(cv::countNonZero(scanner.decode(images) >= 0.0F), 0) << sigma;
  }
}

} // namespace
} // namespace vorn::mv
