// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <vorn/core/observer.hpp>
#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// What an adjustment of views does with the object that they calibrate.
struct ViewAdjuster {
  /// Adjusts the used views, from the object as it is calibrated.
  std::function<Adjustment(std::vector<AdjustmentView> const&, AdjustmentSettings const&, Observer*)> adjust;
  /// Calibrates the object anew after a view was left out.
  std::function<void()> recalibrate;
  /// Gives the object the models and the transform of the adjustment of some views.
  std::function<void(Adjustment const&, std::vector<AdjustmentView> const&)> take;
};

/// @param count of the cameras that a calibration has and can be given
/// @throws Exception when the settings give one more
void requireCameras(CalibrationSettings const& settings, int count);

/// What an adjustment starts from: a camera that was given, for images of the calibrated one's size, or the
/// calibrated one.
/// @throws Exception when the given one is for images of another size
CameraModel startOf(std::optional<CameraModel> const& given, CameraModel const& calibrated);

/// Adds what is found of the used views' images to the report. Views of which it says that the target moved
/// are left out, unless that is so of more than a third of them or `CalibrationSettings::outlierRatio` keeps
/// every view.
void diagnoseImagesOf(Calibration& calibration, CalibrationSettings const& settings);

/// Adjusts the used views together and diagnoses them. Views that a finding names are left out, unless
/// `CalibrationSettings::outlierRatio` keeps every view; the object, residuals and report are those of the
/// last adjustment. Where the views cannot be adjusted the calibration stays as it is and the report says
/// why.
/// @throws Exception when a camera was given and the views cannot be adjusted, when the diagnosis shows that
/// no calibration holds for the views, or when fewer than three
///         are left; Cancelled
void adjustViews(Calibration& calibration, CalibrationSettings const& settings, ViewAdjuster const& adjuster,
                 Progress const& progress);

} // namespace vorn::mv
