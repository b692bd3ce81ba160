// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// A scanner calibrated from rendered ChArUco boards, some of them half covered.

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/target_finder.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv_charuco/charuco.hpp>

#include "sim/demo.hpp"
#include "sim/faults.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::test {
namespace {

using mv::TargetDescription;
using mv::TargetKind;
using mv::scanner::ScannerType;

TargetDescription boardOf() {
  TargetDescription board;
  board.kind = TargetKind::Charuco;
  board.pitch = 24;
  board.size = {12, 8};
  board.markerSize = 18;
  board.dictionary = "DICT_5X5_100";
  return board;
}

std::vector<mv::ScannerView> boardViews(sim::Rig const& rig, TargetDescription const& board) {
  sim::Target const target =
      sim::printedBoard(board.size, board.pitch, mv::targetFinder(board.kind)->darkParts(board));
  std::vector<sim::Pose> poses = sim::demoTargetPoses(target);
  poses.resize(5);
  sim::Campaign const campaign = plannedCampaign(rig, target, poses);
  sim::RenderOptions options;
  options.supersample = 1; // edges are drawn exactly whatever the number of rays
  std::vector<mv::ScannerView> views;
  for (sim::PlannedView const& planned : campaign.views) {
    auto const number = static_cast<int>(views.size());
    sim::ViewImages const images =
        taken(planned, mv::test::patternsOf(rig, ScannerType::Horizontal),
              mv::test::patternsOf(rig, ScannerType::Vertical), 100 * number, options);
    views.push_back({"pose_" + std::to_string(number), images.target, images.columns, images.rows});
  }
  return views;
}

TEST(CharucoScanner, IsCalibratedFromPartsOfABoard) {
  mv::Library::init();
  mv::useCharuco();
  sim::Rig const rig = sim::demoRig(2);
  mv::CalibrationSettings settings;
  settings.target = boardOf();
  settings.projector = rig.projector.device.resolution();
  std::vector<mv::ScannerView> views = boardViews(rig, *settings.target);
  views[1].target.colRange(0, views[1].target.cols / 2).setTo(20); // a hand before the board
  mv::ScannerCalibration const calibration = calibrateScanner(views, settings);
  for (mv::CalibratedView const& view : calibration.views) {
    EXPECT_TRUE(view.isUsed()) << view.reason;
    EXPECT_GE(view.devices.at(1).imgPnts.size() + 6, view.devices.at(0).imgPnts.size()) << view.name;
  }
  EXPECT_LT(calibration.views[1].devices.at(0).imgPnts.size(), 60U);
  ASSERT_TRUE(calibration.report.adjustment);
  EXPECT_LT(calibration.report.adjustment->s0, 1.3);
  cv::Matx44d const found = calibration.object.getTransform();
  cv::Vec3d const base(found(0, 3), found(1, 3), found(2, 3));
  EXPECT_LT(cv::norm(base - rig.projector.world_from_proj.translation), 0.5) << "mm of 199";
}

} // namespace
} // namespace vorn::test
