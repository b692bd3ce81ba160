// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan.hpp>

#include <cmath>
#include <limits>
#include <numeric>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>

#include "scanner/scan/scan_points.hpp"
#include "sim/map_comparison.hpp"
#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using test::captured;
using test::scannerOf;
using vorn::test::expectError;
using Type = scanner::ScannerType;

sim::Rig smallRig() {
  return sim::demoRig(4);
}

std::vector<cv::Mat> const& demoImages() {
  static std::vector<cv::Mat> const images = captured(smallRig(), sim::demoScene());
  return images;
}

bool areSame(cv::Mat const& a, cv::Mat const& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         std::equal(a.datastart, a.dataend, b.datastart, b.dataend);
}

bool hasPoint(cv::Vec3f const& p) {
  return !std::isnan(p[2]);
}

TEST(Scan, IsDecodingAndTriangulationInOneCall) {
  Sl3dScanner scanner = scannerOf(smallRig());
  ScanResult const result = scan(scanner, demoImages());
  Sl3dScanner stepwise = scannerOf(smallRig());
  stepwise["EnableTexture"] = true;
  cv::Mat_<float> const map = stepwise.decode(demoImages());
  cv::Mat_<cv::Vec3f> xyz;
  stepwise.triangulate(map, xyz, {{0, 0}, map.size()});
  EXPECT_TRUE(areSame(result.map, map));

  std::size_t points = 0;
  PointCloud const& cloud = result.cloud;
  ASSERT_EQ(cloud.points().size(), map.size());
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      bool const isMeasured = result.mask(y, x) == static_cast<uchar>(PixelReason::Measured);
      ASSERT_EQ(isMeasured, xyz(y, x)[2] > 0.0F) << x << ", " << y;
      ASSERT_EQ(isMeasured, hasPoint(result.xyz(y, x)));
      ASSERT_EQ(cloud.state()(y, x), isMeasured ? 0 : 255);
      if (isMeasured) {
        ++points;
        ASSERT_EQ(result.xyz(y, x), xyz(y, x));
        ASSERT_EQ(cloud.points()(y, x), xyz(y, x));
        ASSERT_EQ(cloud.texture()(y, x), cv::Vec3b::all(stepwise.getTexture().at<uchar>(y, x)));
      }
    }
  }
  ScanCounts const& counts = result.counts;
  EXPECT_GT(points, map.total() / 2);
  EXPECT_EQ(counts.points, points);
  EXPECT_EQ(counts.pixels, map.total());
  EXPECT_EQ(counts.decoded, static_cast<std::size_t>(cv::countNonZero(map >= 0.0F)));
  EXPECT_EQ(std::accumulate(counts.reasons.begin(), counts.reasons.end(), std::size_t{0}), counts.pixels);
  EXPECT_NE(result.xyz.data, cloud.points().data) << "moving the cloud would move the points";
}

TEST(Scan, AConstantScannerGivesTheSameBits) {
  Sl3dScanner scanner = scannerOf(smallRig());
  ScanResult const first = scan(std::as_const(scanner), demoImages());
  ScanResult const second = scan(scanner, demoImages());
  EXPECT_TRUE(areSame(first.map, second.map));
  EXPECT_TRUE(areSame(first.sigma, second.sigma));
  EXPECT_TRUE(areSame(first.mask, second.mask));
}

TEST(Scan, KeepsPointsThatThePoseTurnsBehindItsOrigin) {
  cv::Matx44d const pose = sim::Pose::fromDegrees({10, 20, 30}, {170, 15, 0}).matrix();
  for (Type::Item const item : {Type::Horizontal, Type::Vertical}) {
    Sl3dScanner scanner = scannerOf(smallRig());
    scanner["ScannerType"] = Type(item);
    std::vector<cv::Mat> const images = captured(smallRig(), sim::demoScene(), Type(item));
    ScanResult const before = scan(scanner, images);
    scanner.setPose(pose);
    ScanResult const moved = scan(scanner, images);
    ASSERT_GT(before.counts.points, before.counts.pixels / 2);
    EXPECT_EQ(moved.counts.points, before.counts.points);
    EXPECT_EQ(moved.cloud.presentCount(), before.counts.points);
    for (int y = 0; y < moved.map.rows; ++y) {
      for (int x = 0; x < moved.map.cols; ++x) {
        ASSERT_EQ(hasPoint(moved.xyz(y, x)), hasPoint(before.xyz(y, x)));
        if (hasPoint(moved.xyz(y, x))) {
          cv::Vec3f const& p = before.xyz(y, x);
          cv::Vec4d const expected = pose * cv::Vec4d(p[0], p[1], p[2], 1);
          ASSERT_LT(moved.xyz(y, x)[2], 0.0F);
          constexpr double rounding = 1e-7; // to floats
          ASSERT_LT(cv::norm(cv::Vec3d(moved.xyz(y, x)) - cv::Vec3d(expected.val)), rounding * cv::norm(p));
        }
      }
    }
  }
}

TEST(Scan, ATriangulationBehindTheCameraIsNoPoint) {
  Sl3dScanner scanner = scannerOf(smallRig());
  cv::Matx44d camFromProj = scanner.getTransform();
  for (int i = 0; i < 3; ++i) {
    camFromProj(i, 3) = -camFromProj(i, 3);
  }
  scanner.setTransform(camFromProj);
  ScanResult const result = scan(scanner, demoImages());
  EXPECT_GT(result.counts.decoded, result.counts.pixels / 2);
  // Mirrored through the camera, nearly every point lies behind it.
  EXPECT_GT(result.counts.of(PixelReason::NoPoint), result.counts.decoded * 9 / 10);
  EXPECT_EQ(result.counts.of(PixelReason::NoPoint) + result.counts.points, result.counts.decoded);
  EXPECT_EQ(result.cloud.presentCount(), result.counts.points);
}

/// A camera or its driver that turns or mirrors what it delivers.
TEST(Scan, TurnedOrMirroredImagesAreDoubtedAndGiveNoPointsFarBeyond) {
  Sl3dScanner scanner = scannerOf(smallRig());
  ScanResult const good = scan(scanner, demoImages());
  EXPECT_TRUE(good.doubts.empty()) << good.doubts[0].text;
  for (int const how : {-1, 1}) { // about both axes, from left to right
    std::vector<cv::Mat> images;
    for (cv::Mat const& image : demoImages()) {
      images.emplace_back();
      cv::flip(image, images.back(), how);
    }
    ScanResult const result = scan(scanner, images);
    ASSERT_FALSE(result.doubts.empty()) << how;
    EXPECT_EQ(result.doubts[0].fault, PatternFault::Mirrored);
    EXPECT_NE(result.doubts[0].text.find("mirrored or turned"), std::string::npos);
    double deepest = 0.0;
    for (cv::Vec3f const& p : result.xyz) {
      deepest = std::max(deepest, hasPoint(p) ? static_cast<double>(p[2]) : 0.0);
    }
    // Half a pixel of the projector turns its ray by 0.5 / f, and the rays of points farther away than
    // b / (0.5 / f) meet at an angle below that.
    double const base = cv::norm(smallRig().projector.world_from_proj.translation);
    double const focal = scanner.getProjectorModel().getK().at<double>(0, 0);
    EXPECT_LT(deepest, 1.01 * base / (0.5 / focal));
    EXPECT_EQ(result.counts.points + result.counts.of(PixelReason::NoPoint), result.counts.decoded);
  }
}

/// Without a point a scan has failed, and says what the images have in common.
TEST(Scan, WithoutAPointNamesTheLikelyCause) {
  Sl3dScanner scanner = scannerOf(smallRig());
  auto const doubt = [&](auto const& change) {
    std::vector<cv::Mat> images;
    for (cv::Mat const& image : demoImages()) {
      images.push_back(change(image));
    }
    ScanResult const result = scan(scanner, images);
    EXPECT_EQ(result.counts.points, 0U);
    EXPECT_FALSE(result.doubts.empty());
    return result.doubts.empty() ? std::string() : result.doubts[0].text;
  };
  // 12 bits taken for 16 on the way to 8.
  EXPECT_NE(doubt([](cv::Mat const& image) { return cv::Mat(image / 16); }).find("scaled down to 8"),
            std::string::npos);
  EXPECT_NE(doubt([](cv::Mat const& image) { return cv::Mat(0 * image); }).find("too little light"),
            std::string::npos);
  EXPECT_NE(doubt([](cv::Mat const& /*image*/) { return demoImages()[0]; }).find("same one"),
            std::string::npos);
}

TEST(Scan, SigmaAndModulationAreThoseOfTheImages) {
  sim::Rig rig = smallRig();
  rig.camera.sensor.fullWell = 3000;
  sim::Scene const scene = sim::demoScene();
  std::vector<cv::Mat> const patterns = test::patternsOf(rig, Type(Type::Horizontal));
  sim::ProjectorView const view(rig.camera, rig.projector, scene);
  sim::Truth const truth = sim::truth(rig.camera, rig.projector, scene);
  sim::Signal const signal =
      sim::signal(rig.camera.sensor, view.expose({patterns.begin(), patterns.begin() + 4}));
  cv::Mat_<uchar> const mask = sim::truthMask(truth, signal);

  Sl3dScanner scanner = scannerOf(rig);
  scanner["MaxFillRadius"] = 0;
  ScanResult const result = scan(scanner, view.capture(patterns));
  double ratios = 0;
  double amplitudes = 0;
  int count = 0;
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      if (mask(y, x) == static_cast<uchar>(sim::TruthMask::Clean) && result.map(y, x) >= 0) {
        double const predicted =
            4 / (2 * CV_PI) * signal.noise(y, x) / (std::sqrt(2.0) * signal.amplitude(y, x));
        ratios += result.sigma(y, x) / predicted;
        amplitudes += result.modulation(y, x) - signal.amplitude(y, x);
        ++count;
      }
      ASSERT_EQ(std::isnan(result.sigma(y, x)), result.map(y, x) < 0);
    }
  }
  ASSERT_GT(count, 10000);
  // Bins of brightness and their medians: some per cent.
  EXPECT_NEAR(ratios / count, 1.0, 0.05);
  EXPECT_NEAR(amplitudes / count, 0.0, 0.1);

  ScanSettings settings;
  settings.noise = 2.0;
  ScanResult const told = scan(scanner, view.capture(patterns), settings);
  cv::Point const pixel(told.map.cols / 2, told.map.rows / 2);
  ASSERT_GE(told.map(pixel), 0);
  EXPECT_NEAR(told.sigma(pixel), 4 / (2 * CV_PI) * 2.0 / (std::sqrt(2.0) * told.modulation(pixel)), 1e-6);
}

TEST(Scan, BlurTakesTheMeanOfMeasuredPointsAlone) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr int radius = 2;
  cv::Mat_<cv::Vec3f> xyz(150, 40); // more rows than are worked on at a time
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      xyz(y, x) = (3 * x + 5 * y) % 11 == 0 ? cv::Vec3f(nan, nan, nan)
                                            : cv::Vec3f(0.1F * static_cast<float>(x * x % 17),
                                                        0.2F * static_cast<float>(y), 500.0F);
    }
  }
  cv::Mat_<cv::Vec3f> blurred = xyz.clone();
  blurMeasured(blurred, radius, Progress());
  cv::Mat_<double> const weights = cv::getGaussianKernel(2 * radius + 1, 0, CV_64F);
  for (int y = radius; y < xyz.rows - radius; ++y) {
    for (int x = radius; x < xyz.cols - radius; ++x) {
      ASSERT_EQ(hasPoint(blurred(y, x)), hasPoint(xyz(y, x)));
      if (!hasPoint(xyz(y, x))) {
        continue;
      }
      cv::Vec3d sum;
      double total = 0;
      for (int i = -radius; i <= radius; ++i) {
        for (int k = -radius; k <= radius; ++k) {
          if (hasPoint(xyz(y + i, x + k))) {
            double const weight = weights(i + radius) * weights(k + radius);
            sum += weight * cv::Vec3d(xyz(y + i, x + k));
            total += weight;
          }
        }
      }
      ASSERT_LT(cv::norm(cv::Vec3d(blurred(y, x)) - sum * (1 / total)), 2e-4) << x << ", " << y;
    }
  }
}

TEST(Scan, BlurPullsNoPointOffTheSurface) {
  Sl3dScanner scanner = scannerOf(smallRig());
  ScanResult const sharp = scan(scanner, demoImages());
  scanner["PointcloudBlurRadius"] = 1;
  ScanResult const smooth = scan(scanner, demoImages());
  EXPECT_TRUE(areSame(smooth.mask, sharp.mask));
  float const nearest = sharp.cloud.boxOrigin().z;
  EXPECT_GT(smooth.cloud.boxOrigin().z, nearest - 1.0F) << "markers of unmeasured pixels took part";
}

TEST(Scan, AStoppedScanLeavesTheScannerAsItWas) {
  Sl3dScanner scanner = scannerOf(smallRig());
  scanner["EnableTexture"] = true;
  scanner["PointcloudBlurRadius"] = 1;
  scanner.setPose(sim::Pose::fromDegrees({1, 2, 3}, {4, 5, 6}).matrix());
  ScanResult const expected = scan(std::as_const(scanner), demoImages());
  nlohmann::json before;
  scanner.write(before);
  int const stops = vorn::test::stopEverywhere(
      [&](Observer& observer) {
        ScanResult const result = scan(scanner, demoImages(), {}, &observer);
        EXPECT_TRUE(areSame(result.map, expected.map));
        EXPECT_TRUE(areSame(result.mask, expected.mask));
        EXPECT_TRUE(areSame(result.xyz, expected.xyz)) << "what a stopped scan left behind showed";
      },
      [&] {
        nlohmann::json after;
        scanner.write(after);
        EXPECT_EQ(after, before);
      });
  constexpr int fewest = 20;
  EXPECT_GT(stops, fewest);

  vorn::test::Watching watching;
  scan(scanner, demoImages(), {}, &watching);
  EXPECT_EQ(watching.fraction, 1.0);
  EXPECT_GE(watching.stages.size(), 4U);
}

TEST(Scan, RefusesWhatCannotBeMeasured) {
  Sl3dScanner const good = scannerOf(smallRig());
  ScanSettings settings;
  settings.noise = -1;
  expectError([&] { scan(good, demoImages(), settings); }, "noise is -1, but must be a number of 0 or more");
  settings.noise = std::numeric_limits<double>::quiet_NaN();
  expectError([&] { scan(good, demoImages(), settings); }, "noise is nan");
  expectError([&] { scan(Sl3dScanner(), demoImages()); }, "not calibrated");
  expectError([&] { scan(good, {}); }, "Insufficient input patterns!");
  expectError([&] { scan(good, std::vector<cv::Mat>(11, cv::Mat::zeros(7, 9, CV_8U))); },
              "The images are 9 x 7, but the scanner's camera has 320 x 240");
  std::vector<cv::Mat> tooMany = demoImages();
  std::string const count = std::to_string(tooMany.size());
  tooMany.push_back(tooMany[0]);
  std::string const columns = std::to_string(good.getProjectorModel().getResolution().width);
  expectError([&] { scan(good, tooMany); }, "There are " + std::to_string(tooMany.size()) +
                                                " images, but the sequence of " + columns + " columns has " +
                                                count);
  Sl3dScanner bad = good;
  bad.setTransform(cv::Matx44d::eye());
  expectError([&] { scan(bad, demoImages()); }, "camera and projector are 0 mm apart");
  for (double const focal : {5.0, 1e6}) {
    nlohmann::json json;
    good.write(json);
    cv::Mat K = good.getProjectorModel().getK().clone();
    K.at<double>(0, 0) = focal;
    json["ProjectorModel"]["K"] = K;
    bad.read(json);
    expectError([&] { scan(bad, demoImages()); }, "The scanner's projector sees ");
  }
}

/// What the rig's camera captures of a set decodes to the true coordinates, and to points as near to the
/// truth as those of the scanner's own sequence.
TEST(ScanDecoded, PointsOfAnySetAreThoseOfTheScene) {
  sim::Rig const rig = smallRig();
  sim::ProjectorView const view(rig.camera, rig.projector, sim::demoScene());
  sim::Truth const truth = sim::truth(rig.camera, rig.projector, sim::demoScene());
  Sl3dScanner scanner = scannerOf(rig);
  auto const meanError = [&](ScanResult const& result) {
    double sum = 0.0;
    double count = 0.0;
    for (int y = 0; y < result.xyz.rows; ++y) {
      for (int x = 0; x < result.xyz.cols; ++x) {
        double const apart = cv::norm(result.xyz(y, x) - truth.x_in_cam(y, x));
        if (apart < 5.0) { // false for a NaN, too
          sum += apart;
          ++count;
        }
      }
    }
    EXPECT_GT(count, 0.5 * static_cast<double>(result.xyz.total()));
    return sum / count;
  };
  double const own = meanError(scan(scanner, demoImages()));
  for (char const* const name : {"gray-phase", "multi-frequency"}) {
    PatternSetOptions options;
    options.axes = PatternAxes::Columns;
    PatternSet const set = PatternSet::builtIn(name, rig.projector.device.resolution(), options);
    DecodedPatterns const decoded = decode_patterns(set, view.capture(set.generate()));
    ScanResult const result = scanDecoded(scanner, decoded);
    // Fringes twice or four times as long have so much more noise.
    EXPECT_LT(meanError(result), (name[0] == 'g' ? 2.0 : 4.0) * 1.3 * own) << name;
    EXPECT_TRUE(areSame(result.map, decoded.column));
    EXPECT_EQ(result.counts.points, static_cast<std::size_t>(cv::countNonZero(result.mask == 0)));
    EXPECT_EQ(result.cloud.presentCount(), result.counts.points);
  }
  scanner["ScannerType"] = Type(Type::Vertical);
  expectError([&] { scanDecoded(scanner, DecodedPatterns()); }, "code no rows");
}

} // namespace
} // namespace vorn::mv
