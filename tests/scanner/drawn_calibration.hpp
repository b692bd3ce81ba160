// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <vector>

#include <vorn/mv/core/library.hpp>

#include "calib/adjustment_rig.hpp"
#include "scanner/calibration/scanner_views.hpp"

namespace vorn::test {

/// The points that one device sees.
inline mv::ViewPoints seenIn(mv::AdjustmentView const& view, std::vector<cv::Point2f> const& pixels) {
  mv::ViewPoints points;
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    if (std::isfinite(pixels[i].x)) {
      points.imgPnts.push_back(pixels[i]);
      points.objPnts.push_back(view.objPnts[i]);
    }
  }
  return points;
}

/// The whole job on points that a rig's devices would find.
/// @param readings in how many ways each view lets its dots be counted
inline mv::ScannerCalibration calibratedFrom(std::vector<mv::AdjustmentView> const& drawn,
                                             AdjustmentRig const& rig, mv::CalibrationSettings settings,
                                             int readings = 1) {
  mv::Library::init();
  settings.projector = rig.projector.resolution;
  mv::ScannerViews views;
  for (mv::AdjustmentView const& view : drawn) {
    views.names.push_back(view.name);
  }
  views.measure = [&](std::size_t number, mv::MeasuredView& view, mv::ViewSteps&) {
    view.sizes = {rig.camera.resolution};
    view.result.devices = {seenIn(drawn[number], drawn[number].points0),
                           seenIn(drawn[number], drawn[number].points1)};
    view.result.readings = readings;
  };
  return mv::calibrateScanner(views, settings, nullptr);
}

} // namespace vorn::test
