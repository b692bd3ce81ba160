// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan.hpp>

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/mv/measure/fit.hpp>

#include "sim/truth.hpp"
#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

std::vector<cv::Point3f> pointsOf(ScanResult const& result, sim::Truth const& truth, int label) {
  std::vector<cv::Point3f> points;
  for (int y = 0; y < result.xyz.rows; ++y) {
    for (int x = 0; x < result.xyz.cols; ++x) {
      if (truth.label(y, x) == label && !std::isnan(result.xyz(y, x)[2])) {
        points.emplace_back(result.xyz(y, x));
      }
    }
  }
  return points;
}

double mapError(ScanResult const& result, sim::Truth const& truth, bool isAtEdges) {
  double squares = 0.0;
  int count = 0;
  for (int y = 0; y < result.map.rows; ++y) {
    for (int x = 0; x < result.map.cols; ++x) {
      double const error =
          static_cast<double>(result.map(y, x)) - static_cast<double>(truth.projector(y, x)[0]);
      if (result.map(y, x) >= 0.0F && (truth.edge(y, x) != 0) == isAtEdges && std::fabs(error) < 1.0) {
        squares += error * error;
        ++count;
      }
    }
  }
  return std::sqrt(squares / count);
}

TEST(SmoothScan, LowersNoiseAndKeepsBallsAndEdges) {
  sim::Rig const rig = sim::demoRig(2);
  std::vector<cv::Mat> const images = test::captured(rig, sim::demoScene());
  sim::Truth const truth = sim::truth(rig.camera, rig.projector, sim::demoScene());
  Sl3dScanner scanner = test::scannerOf(rig);
  ScanSettings settings;
  ScanResult const plain = scan(scanner, images, settings);
  settings.smoothRadius = 2;
  ScanResult const smooth = scan(scanner, images, settings);
  settings.smoothRadius = 0;
  scanner["PhaseBlurRadius"] = 1;
  ScanResult const blurred = scan(scanner, images, settings);

  EXPECT_LT(mapError(smooth, truth, false), 0.45 * mapError(plain, truth, false));
  EXPECT_LT(mapError(smooth, truth, true), 0.95 * mapError(plain, truth, true));
  EXPECT_GT(mapError(blurred, truth, true), 1.1 * mapError(plain, truth, true));
  for (int label : {sim::SphereA, sim::SphereB}) {
    double const radius = fitSphere(pointsOf(plain, truth, label)).feature.radius();
    EXPECT_NEAR(fitSphere(pointsOf(smooth, truth, label)).feature.radius(), radius, 0.008);
    EXPECT_LT(fitSphere(pointsOf(blurred, truth, label)).feature.radius(), radius - 0.03);
  }
  EXPECT_EQ(smooth.counts.points, plain.counts.points);
  EXPECT_GT(smooth.counts.smoothed, smooth.counts.decoded * 99 / 100);
  EXPECT_EQ(plain.counts.smoothed, 0U);
}

TEST(SmoothScan, RefusesARadiusBeyondItsRange) {
  ScanSettings settings;
  settings.smoothRadius = 6;
  vorn::test::expectError([&] { settings.check(); }, "smoothRadius is 6");
}

} // namespace
} // namespace vorn::mv
