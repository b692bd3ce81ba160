// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include "scanner/calibration/target_views.hpp"
#include "scanner/projector_axis.hpp"

namespace vorn::mv {

/// How views become the points of a camera and a projector, whatever the projector showed.
struct ScannerViews {
  std::vector<std::string> names;
  std::size_t stepsPerView = 1; ///< how often `measure` begins a step
  /// Adds the points of both devices to a view. What it throws becomes the view's reason.
  std::function<void(std::size_t number, MeasuredView& view, ViewSteps& steps)> measure;
  /// The projector's pixels; asked where the settings do not say them.
  std::function<cv::Size(std::vector<CalibratedView> const& views)> projector;
};

/// What a view tells of the projector's pixels.
struct DecodedExtents {
  DecodedExtent columns;
  DecodedExtent rows;
};

/// How often `measureScannerView` begins a step.
constexpr std::size_t scannerViewSteps = 3;

/// Adds the points of both devices in a view of the scanner's own sequences.
void measureScannerView(ScannerView const& view, CalibrationSettings const& settings, MeasuredView& measured,
                        DecodedExtents& extents, ViewSteps& steps);

/// The projector's pixels as the used views tell.
cv::Size guessProjector(std::vector<CalibratedView> const& views, std::vector<DecodedExtents> const& extents);

/// What a camera saw of a target in the projector's light.
struct DecodedTarget {
  cv::Mat image;   ///< under full light
  cv::Mat columns; ///< what was decoded
  cv::Mat rows;
};

/// The points that the projector's light reaches, in its pixels.
/// @throws Exception when there are too few
ViewPoints projectorPoints(ViewPoints const& camera, DecodedTarget const& decoded,
                           CalibrationSettings const& settings);

/// `calibrateScanner` of views that are measured by `views`.
ScannerCalibration calibrateScanner(ScannerViews const& views, CalibrationSettings const& settings,
                                    Observer* observer);

} // namespace vorn::mv
