// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan.hpp>

#include <cmath>

#include <gtest/gtest.h>

#include "sim/truth.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using Type = scanner::ScannerType;

/// Root mean square of the errors' means at all parts of a pixel, away from edges.
double systematic(cv::Mat_<float> const& map, sim::Truth const& truth, int axis) {
  constexpr int parts = 40;
  cv::Mat_<double> sums(2, parts, 0.0);
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      auto const place = static_cast<double>(truth.projector(y, x)[axis]);
      double const error = static_cast<double>(map(y, x)) - place;
      if (truth.edge(y, x) == 0 && map(y, x) >= 0 && std::fabs(error) < 0.5) {
        auto const part = static_cast<int>((place - std::floor(place)) * parts);
        sums(0, part) += error;
        sums(1, part) += 1.0;
      }
    }
  }
  double squares = 0.0;
  for (int i = 0; i < parts; ++i) {
    squares += std::pow(sums(0, i) / sums(1, i), 2) / parts;
  }
  return std::sqrt(squares);
}

/// The scanner's own sequence, shown by a projector whose pixels are squares to a twentieth of their width.
TEST(ScanStaircase, OfASharpProjectorIsTakenOff) {
  sim::Rig rig = sim::demoRigSampled(2.5, 2);
  rig.projector.blur = 0.05;
  rig.projector.blurSlope = 0.0;
  for (Type::Item const item : {Type::Horizontal, Type::Vertical}) {
    sim::RenderOptions options;
    options.supersample = 4; // edges of pixels are finer than the camera's
    std::vector<cv::Mat> const images =
        sim::ProjectorView(rig.camera, rig.projector, sim::demoScene(), options)
            .capture(test::patternsOf(rig, Type(item)));
    sim::Truth const truth = sim::truth(rig.camera, rig.projector, sim::demoScene());
    Sl3dScanner scanner = test::scannerOf(rig);
    scanner["ScannerType"] = Type(item);
    ScanSettings settings;
    ScanResult const plain = scan(scanner, images, settings);
    settings.correctsStaircase = true;
    ScanResult const straight = scan(scanner, images, settings);
    int const axis = item == Type::Horizontal ? 0 : 1;
    double const before = systematic(plain.map, truth, axis);
    double const after = systematic(straight.map, truth, axis);
    EXPECT_GT(before, 0.04) << after;
    EXPECT_LT(after, 0.02) << "of " << before;
    EXPECT_LT(after, before / 3.0);
    EXPECT_EQ(plain.staircase, 0.0);
    EXPECT_GT(straight.staircase, before);
  }
}

} // namespace
} // namespace vorn::mv
