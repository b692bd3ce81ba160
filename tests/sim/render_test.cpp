// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include "sim/demo.hpp"
#include "sim/render.hpp"
#include "sim/truth.hpp"

namespace vorn::sim {
namespace {

/// A camera and a projector in one place, without distortion, so that one pixel of each covers the same.
Rig coaxialRig(cv::Size const& size) {
  Rig rig;
  double const focal = size.width;
  rig.camera.device = Device({focal, focal}, {0.5 * (size.width - 1), 0.5 * (size.height - 1)}, {}, size);
  rig.projector.device = rig.camera.device;
  rig.projector.black = 0;
  rig.projector.blurSlope = 0;
  rig.projector.focus = rig.projector.referenceDistance = 500;
  return rig;
}

Scene frontalPlane(double z, double albedo) {
  Object plane;
  plane.shape = Rectangle{{1e4, 1e4}};
  plane.world_from_object.translation = {0, 0, z};
  plane.material.albedo = albedo;
  return Scene({plane});
}

cv::Mat white(Projector const& projector) {
  return cv::Mat(projector.device.resolution(), CV_8UC1, cv::Scalar(255));
}

TEST(ProjectorView, FlatPlaneIsAsBrightAsComputedByHand) {
  Rig rig = coaxialRig({121, 81});
  rig.camera.sensor.exposure = 0.5;
  rig.camera.sensor.ambient = 0.1;
  rig.projector.black = 0.2;
  rig.projector.gamma = 2;
  cv::Mat const half(rig.projector.device.resolution(), CV_8UC1, cv::Scalar(102));
  ProjectorView const view(rig.camera, rig.projector, frontalPlane(400, 0.7));
  cv::Mat const image = view.expose({half})[0];
  double const light = 0.2 + 0.8 * 0.4 * 0.4;
  // Blur over a pixel's neighbours on a brightness that bends by 1e-5 of itself a pixel.
  constexpr double bendGrey = 0.01;
  for (cv::Point const& p : {cv::Point(60, 40), cv::Point(20, 30), cv::Point(100, 60)}) {
    double const r2 = ((p.x - 60) * (p.x - 60) + (p.y - 40) * (p.y - 40)) / (121.0 * 121.0);
    double const nearness = (500.0 / 400.0) * (500.0 / 400.0) / (1 + r2);
    double const expected = 3 + 255 * 0.5 * 0.7 * (light * nearness / std::sqrt(1 + r2) + 0.1);
    EXPECT_NEAR(static_cast<double>(image.at<float>(p)), expected, bendGrey);
  }
}

TEST(ProjectorView, FringesLoseTheContrastThatBlurAndPixelsTake) {
  constexpr double pi = CV_PI;
  constexpr double cameraBlur = 0.6;
  // Patterns are rounded to 8 bits and a pixel is seen through a 4 x 4 grid of rays.
  constexpr double relativeError = 3e-3;
  auto const box = [](double period) { return std::sin(pi / period) / (pi / period); };
  auto const gauss = [](double sigma, double period) {
    return std::exp(-2 * pi * pi * sigma * sigma / (period * period));
  };
  for (int const period : {4, 16}) {
    for (double const blur : {0.4, 0.6, 1.5}) {
      Rig rig = coaxialRig({200, 9});
      rig.camera.blur = cameraBlur;
      rig.camera.sensor.ambient = 0;
      rig.projector.blur = blur;
      cv::Mat fringes = white(rig.projector);
      for (int x = 0; x < fringes.cols; ++x) {
        fringes.col(x) = cv::saturate_cast<uchar>(127.5 + 127.5 * std::cos(2 * pi * x / period));
      }
      ProjectorView const view(rig.camera, rig.projector, frontalPlane(500, 0.8), {4});
      auto const images = view.expose({fringes, white(rig.projector)});
      double re = 0;
      double im = 0;
      constexpr int first = 20;
      constexpr int count = 160;
      for (int x = first; x < first + count; ++x) {
        double const share = (static_cast<double>(images[0].at<float>(4, x)) - 3) /
                             (static_cast<double>(images[1].at<float>(4, x)) - 3);
        re += 2 * share * std::cos(2 * pi * x / period) / count;
        im += 2 * share * std::sin(2 * pi * x / period) / count;
      }
      double const expected =
          0.5 * box(period) * gauss(blur, period) * box(period) * gauss(cameraBlur, period);
      EXPECT_NEAR(re, expected, relativeError * expected) << period << " " << blur;
      EXPECT_NEAR(im, 0.0, relativeError * expected) << period << " " << blur;
    }
  }
}

TEST(ProjectorView, OneProjectorPixelLightsThePlaceThatTheTruthNames) {
  Rig const rig = demoRig(4);
  Scene const scene = frontalPlane(560, 0.8);
  cv::Point const lit(90, 41);
  cv::Mat pattern(rig.projector.device.resolution(), CV_8UC1, cv::Scalar(0));
  cv::Mat const dark = pattern.clone();
  pattern.at<uchar>(lit) = 255;
  auto const images = ProjectorView(rig.camera, rig.projector, scene).expose({pattern, dark});
  Truth const exact = truth(rig.camera, rig.projector, scene);
  cv::Mat const spot = images[0] - images[1];
  cv::Vec2d mean;
  for (int y = 0; y < spot.rows; ++y) {
    for (int x = 0; x < spot.cols; ++x) {
      if (spot.at<float>(y, x) > 0.0F) {
        mean += cv::Vec2d(exact.projector(y, x)) * static_cast<double>(spot.at<float>(y, x));
      }
    }
  }
  mean /= cv::sum(spot)[0];
  // The spot covers ten camera pixels; a wrong convention would be half a pixel off.
  constexpr double coarsePx = 0.02;
  EXPECT_NEAR(mean[0], lit.x, coarsePx);
  EXPECT_NEAR(mean[1], lit.y, coarsePx);
}

TEST(ProjectorView, GlobalLightReturnsAShareOfThePatternsMean) {
  Rig rig = coaxialRig({60, 40});
  rig.projector.globalLight = 0.3;
  rig.camera.sensor.ambient = 0;
  cv::Mat half = white(rig.projector);
  half.colRange(0, 30) = 0;
  cv::Mat const image = ProjectorView(rig.camera, rig.projector, frontalPlane(500, 0.8)).expose({half})[0];
  EXPECT_NEAR(static_cast<double>(image.at<float>(20, 10)), 3 + 255 * 0.6 * 0.8 * 0.3 * 0.5, 1e-3);
}

TEST(ProjectorView, ImagesAreTheSameForAnyNumberOfThreads) {
  Rig const rig = demoRig(8);
  auto const capture = [&rig](int threads) {
    int const before = cv::getNumThreads();
    cv::setNumThreads(threads);
    cv::Mat const image =
        ProjectorView(rig.camera, rig.projector, demoScene()).capture({white(rig.projector)})[0];
    cv::setNumThreads(before);
    return image;
  };
  EXPECT_EQ(cv::norm(capture(1), capture(2), cv::NORM_INF), 0.0);
}

TEST(ProjectorView, AHighlightStandsWhereTheSurfaceMirrorsTheLight) {
  Rig rig = coaxialRig({61, 41});
  rig.camera.sensor.ambient = 0;
  rig.projector.world_from_proj.translation = {100, 0, 0};
  Object plane;
  plane.shape = Rectangle{{1e3, 1e3}};
  plane.world_from_object.translation = {0, 0, 500};
  plane.material.albedo = 0;
  plane.material.specular = 0.5;
  plane.material.shininess = 400;
  cv::Mat const image =
      ProjectorView(rig.camera, rig.projector, Scene({plane})).expose({white(rig.projector)})[0];
  cv::Point brightest;
  double peak = 0;
  cv::minMaxLoc(image, nullptr, &peak, nullptr, &brightest);
  // Half way between the devices, at x = 50 mm, the surface mirrors one into the other; six pixels from the
  // middle.
  EXPECT_EQ(brightest, cv::Point(36, 20));
  double const nearness = 500.0 * 500.0 / (500.0 * 500.0 + 50.0 * 50.0);
  // Near its top the lobe is a Gaussian of 1 / sqrt(400) rad = 3.05 pixels, which blur and pixel widen.
  double const widening = 1 + (0.55 * 0.55 + 1.0 / 12) / (3.05 * 3.05);
  EXPECT_NEAR(peak - 3, 255 * 0.6 * 0.5 * nearness / widening, 0.01 * peak);
}

TEST(ProjectorView, ACheckerHasItsTwoAlbedosInTurn) {
  Rig rig = coaxialRig({60, 40});
  rig.camera.sensor.ambient = 1;
  rig.camera.sensor.exposure = 0.5;
  Object plane;
  plane.shape = Rectangle{{1e3, 1e3}};
  plane.world_from_object.translation = {0, 0, 60};
  plane.material.texture = Checker{10, 0.2};
  cv::Mat const dark(rig.projector.device.resolution(), CV_8UC1, cv::Scalar(0));
  cv::Mat const image = ProjectorView(rig.camera, rig.projector, Scene({plane})).expose({dark})[0];
  // A pixel is 1 mm: squares end at columns 29.5, 39.5, ... and rows 19.5, 29.5, ...
  EXPECT_NEAR(static_cast<double>(image.at<float>(24, 34)), 3 + 127.5 * 0.8, 1e-3);
  EXPECT_NEAR(static_cast<double>(image.at<float>(24, 44)), 3 + 127.5 * 0.2, 1e-3);
  EXPECT_NEAR(static_cast<double>(image.at<float>(34, 44)), 3 + 127.5 * 0.8, 1e-3);
  EXPECT_NEAR(static_cast<double>(image.at<float>(14, 34)), 3 + 127.5 * 0.2, 1e-3);
}

TEST(ProjectorView, RefusesPatternsOfAnotherSizeOrType) {
  Rig const rig = coaxialRig({16, 12});
  ProjectorView const view(rig.camera, rig.projector, frontalPlane(500, 0.8));
  EXPECT_THROW(view.capture({cv::Mat(12, 15, CV_8UC1)}), std::invalid_argument);
  EXPECT_THROW(view.capture({cv::Mat(12, 16, CV_32FC1)}), std::invalid_argument);
}

TEST(ReadOut, NoiseIsAsStrongAsPromisedAndIndependent) {
  Sensor sensor;
  sensor.fullWell = 12000;
  sensor.readNoise = 30;
  cv::Mat const grey(300, 300, CV_32FC1, cv::Scalar(120.3));
  cv::Mat first;
  cv::Mat second;
  readOut(sensor, grey, 0).convertTo(first, CV_64F);
  readOut(sensor, grey, 1).convertTo(second, CV_64F);
  double const electrons = (120.3 - 3) / 255 * 12000;
  double const sigma = std::sqrt((electrons + 900) * (255.0 / 12000) * (255.0 / 12000) + 1.0 / 12);
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(first, mean, deviation);
  // Four standard errors of the mean, the deviation and the correlation of 90000 samples.
  double const root = std::sqrt(90000.0);
  EXPECT_NEAR(mean[0], 120.3, 4 * sigma / root);
  EXPECT_NEAR(deviation[0], sigma, 4 * sigma / (root * std::sqrt(2.0)));
  first -= mean[0];
  second -= cv::mean(second)[0];
  double const variance = sigma * sigma * 90000;
  EXPECT_NEAR(first.dot(second) / variance, 0.0, 4 / root);
  EXPECT_NEAR(first.colRange(0, 299).dot(first.colRange(1, 300)) / variance, 0.0, 4 / root);
  EXPECT_NEAR(first.rowRange(0, 299).dot(first.rowRange(1, 300)) / variance, 0.0, 4 / root);
}

TEST(ReadOut, SaturatesFlickersAndLosesDeadRows) {
  Sensor sensor;
  sensor.deadRows = {2};
  EXPECT_EQ(cv::countNonZero(readOut(sensor, cv::Mat(5, 50, CV_32FC1, cv::Scalar(400)), 0) != 255), 50);
  sensor.flicker = 0.1;
  cv::Mat const grey(100, 100, CV_32FC1, cv::Scalar(100));
  double sum = 0;
  constexpr int images = 200;
  for (int i = 0; i < images; ++i) {
    double const mean = cv::mean(readOut(sensor, grey, i).rowRange(3, 100))[0];
    sum += (mean - 100) * (mean - 100);
  }
  // A deviation of 9.7 grey levels, known to 1 in sqrt(2 * 200): three such errors.
  EXPECT_NEAR(std::sqrt(sum / images), 9.7, 9.7 * 0.15);
}

TEST(TruthMask, TellsCleanFromWeakClippedAndUnseenPixels) {
  // Fringes of amplitude 20, 20, 5 and 20 grey levels; the second pixel is too bright, the fourth dark.
  cv::Mat const mean = (cv::Mat_<float>(1, 4) << 100, 250, 100, 100);
  cv::Mat const amplitude = (cv::Mat_<float>(1, 4) << 20, 20, 5, 20);
  std::vector<cv::Mat> steps;
  for (double const quarter : {0.0, 1.0, 2.0, 3.0}) {
    steps.push_back(mean + amplitude * std::sin(0.4 + quarter * CV_PI / 2));
  }
  Signal const found = signal(Sensor(), steps);
  EXPECT_LT(cv::norm(found.amplitude, amplitude, cv::NORM_INF), 1e-4);
  EXPECT_NEAR(static_cast<double>(found.noise(0, 0)),
              std::hypot(noiseSigma(Sensor(), 100), std::sqrt(1.0 / 12)), 1e-6);
  Truth seen;
  seen.projector = cv::Mat_<cv::Vec2f>(1, 4, cv::Vec2f(10, 10));
  seen.projector(0, 3) = cv::Vec2f::all(std::nanf(""));
  seen.label = cv::Mat_<uchar>::ones(1, 4);
  seen.edge = cv::Mat_<uchar>(1, 4, uchar{0});
  cv::Mat const expected = (cv::Mat_<uchar>(1, 4) << 255, 64, 64, 0);
  EXPECT_EQ(cv::norm(truthMask(seen, found), expected, cv::NORM_INF), 0.0);
}

} // namespace
} // namespace vorn::sim
