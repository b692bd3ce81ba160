// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan.hpp>

#include <gtest/gtest.h>

#include "sim/map_comparison.hpp"
#include "sim/truth.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using Type = scanner::ScannerType;

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
    sim::MapAxis const axis = item == Type::Horizontal ? sim::MapAxis::Column : sim::MapAxis::Row;
    double const before = sim::systematicError(plain.map, truth, axis);
    double const after = sim::systematicError(straight.map, truth, axis);
    EXPECT_GT(before, 0.04) << after;
    EXPECT_LT(after, 0.02) << "of " << before;
    EXPECT_LT(after, before / 3.0);
    EXPECT_EQ(plain.staircase, 0.0);
    EXPECT_GT(straight.staircase, before);
  }
}

} // namespace
} // namespace vorn::mv
