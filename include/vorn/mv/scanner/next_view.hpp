// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/scanner/point_uncertainty.hpp>
#include <vorn/mv/sl/scanner_type.hpp>

namespace vorn::mv {

/// What `nextBestView` looks for.
struct NextViewSettings {
  /// Where points shall be exact, and between which depths the middle of the target can be held. Both depths
  /// 0: where the target was (`workingVolume`).
  WorkingVolume volume;
  /// The lengths that `PredictedError::bar` is about, in the unit of the target. Above 0.
  double barLength = 100;
  /// How far the target may be tilted against the camera's axis, degrees: 5 to 60.
  double greatestTilt = 40;
  /// The projector's coordinate that scans are of.
  scanner::ScannerType scannerType;
};

/// A pose of the target that a calibration would gain from.
struct NextView {
  /// Where to hold the target.
  cv::Matx44d cam_from_target = cv::Matx44d::eye();
  cv::Point2d pixel;   ///< of the camera, where the middle of the target is seen
  double distance = 0; ///< of that middle along the camera's axis
  /// Between the target's normal and the camera's axis, degrees.
  double tilt = 0;
  /// Which side of the target is farther away, as a direction in the image: 0 its right, 90 its lower side,
  /// 180 its left, 270 its upper side, degrees. 0 for a target that is not tilted.
  double direction = 0;
  /// How far it is turned in its own plane against the way that it was mostly held, degrees: 0 or 90.
  double roll = 0;
  /// Dots that camera and projector both see.
  int dotCount = 0;
  /// What the calibration is expected to be wrong by, over the volume.
  PredictedError before;
  /// The same with this view, measured as exactly as the others are.
  PredictedError after;
  /// Poses that were compared.
  int triedCount = 0;
};

/// Which pose of the target lowers the expected error of a scanner's points most.
///
/// Poses are drawn from a grid over the camera's image and three depths, untilted and at two tilts to eight
/// sides, upright and turned by 90 degrees; always the same ones. Those count that show both devices as large
/// a share of the target as the poorest view, from a direction not flatter than 30 degrees; where there are
/// none, those that show the most, if it is 70 % of that. Each adds its
/// information, its own pose eliminated (Schur complement), to that of the views; the target's shape stays as
/// free as it was, and the noise of a dot as it was measured. Compared is `PredictedError::rigid` over the
/// volume.
/// Working memory: 5 kB a pose tried at a time, beside 10 kB a place in the volume.
/// @param adjustment of a scanner (`adjustScanner`), with both models free or one of them held
/// @param views those that were adjusted
/// @param observer is told the stage "looking for the next view" and may stop it
/// @throws Exception for the adjustment of other devices or other views, settings out of their range, a
/// volume
///         that camera and projector do not both see, and when no pose shows enough of the target to both;
///         `Cancelled` when the observer stops it
[[nodiscard]] VORN_API NextView nextBestView(Adjustment const& adjustment,
                                             std::vector<AdjustmentView> const& views,
                                             NextViewSettings const& settings = {},
                                             Observer* observer = nullptr);

} // namespace vorn::mv
