// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/solved_views.hpp"

#include <cstdio>

#include "calib/adjust/view_statistics.hpp"
#include "core/error.hpp"

namespace vorn::mv {

namespace {

std::string nameOf(AdjustmentView const& view, std::size_t index) {
  return view.name.empty() ? "view " + std::to_string(index) : view.name;
}

/// Of the lists' lengths; which dots they are about, `solvedBundle` sees.
void requireTogether(std::vector<AdjustmentView> const& views, Adjustment const& adjustment) {
  if (adjustment.poses.size() != views.size() || adjustment.views.size() != views.size() ||
      adjustment.models.empty()) {
    throw error("The adjustment has " + std::to_string(adjustment.poses.size()) + " views, not " +
                    std::to_string(views.size()),
                "diagnose");
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    AdjustmentView const& view = views[i];
    std::size_t const count = view.objPnts.size();
    bool const hasSecond = adjustment.models.size() < 2 || view.points1.size() == count;
    bool const hasSigmas = (view.sigmas.empty() || view.sigmas.size() == count) &&
                           (view.sigmas1.empty() || view.sigmas1.size() == view.points1.size());
    if (view.points0.size() != count || !hasSecond || !hasSigmas) {
      throw error(nameOf(view, i) + " has lists of different lengths", "diagnose");
    }
  }
}

Bundle checkedBundle(std::vector<AdjustmentView> const& views, Adjustment const& adjustment) {
  requireTogether(views, adjustment);
  return solvedBundle(views, adjustment);
}

} // namespace

SolvedViews::SolvedViews(std::vector<AdjustmentView> const& givenViews, Adjustment const& givenAdjustment)
    : views(givenViews), adjustment(givenAdjustment), bundle(checkedBundle(givenViews, givenAdjustment)) {}

std::string SolvedViews::deviceName(int device) const {
  if (deviceCount() == 1) {
    return "the camera";
  }
  return adjustment.isRead ? (device == 0 ? "the camera" : "the projector")
                           : "camera " + std::to_string(device);
}

std::string SolvedViews::viewName(std::size_t view) const {
  return nameOf(views[view], view);
}

std::string rounded(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

} // namespace vorn::mv
