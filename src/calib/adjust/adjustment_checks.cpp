// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/adjustment_checks.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

/// Whether there are standard deviations for all pixels.
bool areSigmas(std::vector<cv::Point2f> const& sigmas, std::vector<cv::Point2f> const& pixels) {
  bool areGood = sigmas.size() == pixels.size();
  for (std::size_t i = 0; areGood && i < pixels.size(); ++i) {
    bool const isPoint = std::isfinite(pixels[i].x) && std::isfinite(pixels[i].y);
    areGood = !isPoint || (sigmas[i].x > 0 && sigmas[i].y > 0 && std::isfinite(sigmas[i].x) &&
                           std::isfinite(sigmas[i].y));
  }
  return areGood;
}

} // namespace

void checkSettings(AdjustmentSettings const& settings) {
  if (!(settings.outlierLimit >= 3)) {
    throw error("outlierLimit must be at least 3, not " + std::to_string(settings.outlierLimit), "adjust");
  }
  if (settings.maxIterations < 1) {
    throw error("maxIterations must be at least 1, not " + std::to_string(settings.maxIterations), "adjust");
  }
}

void checkView(AdjustmentView const& view, std::size_t index, int deviceCount) {
  std::string const name =
      "View " + std::to_string(index) + (view.name.empty() ? "" : " (" + view.name + ")");
  std::size_t const count = view.objPnts.size();
  std::size_t const wanted1 = deviceCount > 1 ? count : 0;
  if (view.points0.size() != count || view.points1.size() != wanted1) {
    throw error(name + " holds " + std::to_string(count) + " dots, " + std::to_string(view.points0.size()) +
                    " points of the camera and " + std::to_string(view.points1.size()) +
                    " of a second device; the last must be " + std::to_string(wanted1),
                "adjust");
  }
  if (!view.sigmas.empty() &&
      (view.sigmas.size() != count || !std::all_of(view.sigmas.begin(), view.sigmas.end(),
                                                   [](float s) { return s > 0 && std::isfinite(s); }))) {
    throw error(name + " must hold one sigma above 0 for every dot, or none", "adjust");
  }
  if (!view.sigmas1.empty() && !areSigmas(view.sigmas1, view.points1)) {
    throw error(name + " must hold two sigmas above 0 for every dot of the second device, or none", "adjust");
  }
  for (cv::Point2f const& p : view.objPnts) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) {
      throw error(name + " holds a dot of the target that is not finite", "adjust");
    }
  }
}

void checkDevice(DeviceStart const& start, std::size_t device) {
  std::string const name = "Model " + std::to_string(device);
  if (start.isHeld && start.model.getK().empty()) {
    throw error(name + " is to be held but is not calibrated", "adjust");
  }
  if (!start.isHeld && start.model.getResolution().empty()) {
    throw error(name + " has no resolution", "adjust");
  }
}

} // namespace vorn::mv
