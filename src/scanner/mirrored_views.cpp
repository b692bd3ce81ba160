// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/mirrored_views.hpp"

#include <cmath>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "calib/adjust/view_statistics.hpp"
#include "scanner/adjustment_views.hpp"
#include "scanner/target_views.hpp"

namespace vorn::mv {

namespace {

/// How the images of a view's devices do not belong together; empty when they do.
std::string disagreementOf(AdjustmentView const& view) {
  cv::Matx22d const proj_from_cam = affineMapOf(view.points0, view.points1);
  // Devices may stand turned to each other by any angle, so that all but the sign may be right.
  if (!(cv::determinant(proj_from_cam) < 0)) {
    return "";
  }
  double const straight = std::abs(proj_from_cam(0, 0)) + std::abs(proj_from_cam(1, 1));
  double const crossed = std::abs(proj_from_cam(0, 1)) + std::abs(proj_from_cam(1, 0));
  return crossed > straight ? "columns and rows are exchanged"
                            : "the images of the camera or of the projector are mirrored";
}

} // namespace

void leaveOutMirrored(Calibration& calibration, CalibrationSettings const& settings) {
  std::vector<AdjustmentView> const seen = adjustmentViews(calibration.views);
  std::string const advice = adviceOf(FindingCause::Mirrored);
  std::vector<Finding> findings;
  std::size_t number = 0;
  for (std::size_t i = 0; i < calibration.views.size(); ++i) {
    CalibratedView const& view = calibration.views[i];
    std::string const fault = view.isUsed() ? disagreementOf(seen[number++]) : "";
    if (!fault.empty()) {
      findings.push_back(
          {FindingCause::Mirrored, static_cast<int>(i), -1, -1, 0, view.name + ": " + fault, advice, true});
    }
  }
  if (!findings.empty() && 2 * findings.size() >= seen.size()) {
    throw calibrationFailure(findings.front().text + ", and so in " + std::to_string(findings.size()) +
                             " of " + std::to_string(seen.size()) + " views. " + advice);
  }
  for (Finding const& finding : findings) {
    CalibratedView& view = calibration.views[static_cast<std::size_t>(finding.view)];
    if (std::isfinite(settings.outlierRatio)) {
      view.reason = finding.text.substr(view.name.size() + 2);
    }
    calibration.report.findings.push_back(finding);
  }
}

} // namespace vorn::mv
