// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include "sim/faults.hpp"
#include "sim/target.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv::test {

/// The demonstration's rig at half of its pixels.
inline sim::Rig halfRig() {
  return sim::demoRig(2);
}

/// Settings for that rig's images of the target.
inline CalibrationSettings halfRigSettings() {
  CalibrationSettings result;
  result.detector["PatternDim"] = 15.0;
  result.detector["MinDotArea"] = 20.0;
  return result;
}

/// The demonstration's target in a pose, under the light of a rig: the scene of a calibration view.
inline sim::ProjectorView targetView(sim::Rig const& rig, sim::Pose const& pose) {
  sim::RenderOptions options;
  options.supersample = 1; // dots are drawn exactly whatever the number of rays
  return {rig.camera, rig.projector, sim::Scene({sim::targetObject(sim::demoTarget(), pose)}), options};
}

/// A view of the demonstration's target in which something may go wrong.
inline ScannerView renderedView(sim::Campaign const& campaign, std::size_t view) {
  sim::RenderOptions options;
  options.supersample = 1;
  sim::ViewImages const images =
      taken(campaign.views[view],
            patternsOf(campaign.scanRig, scanner::ScannerType(scanner::ScannerType::Horizontal)),
            patternsOf(campaign.scanRig, scanner::ScannerType(scanner::ScannerType::Vertical)), 0, options);
  return {"pose_0" + std::to_string(view), images.target, images.columns, images.rows};
}

/// One view of a scanner's calibration.
inline ScannerView renderedView(sim::Rig const& rig, sim::Pose const& pose, std::string const& name) {
  cv::Mat const white(rig.projector.device.resolution(), CV_8U, cv::Scalar(255));
  sim::ProjectorView const view = targetView(rig, pose);
  ScannerView rendered;
  rendered.name = name;
  rendered.target = view.capture({white})[0];
  rendered.columns = view.capture(patternsOf(rig, scanner::ScannerType(scanner::ScannerType::Horizontal)));
  rendered.rows = view.capture(patternsOf(rig, scanner::ScannerType(scanner::ScannerType::Vertical)));
  return rendered;
}

} // namespace vorn::mv::test
