// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One pose of the target before two cameras and a projector, which shows its sequence once for both.
struct RigView {
  std::string name;                 ///< for messages and reports
  std::vector<ScannerView> cameras; ///< what camera 0 and camera 1 saw; their names do not count
};

/// How well the three devices of a rig fit together.
///
/// Each two of them are first calibrated by themselves. Going round, from the projector to camera 0, on to
/// camera 1 and back, then ends where it began but for the errors of the three.
struct RigClosure {
  double turn = 0;  ///< by which it ends turned, radians
  double shift = 0; ///< by which it ends shifted, in the target's unit
};

/// Two cameras and a projector in one frame, that of camera 0. The three objects hold the same cameras, the
/// same projector and transforms that follow from one another.
///
/// Of each calibration the views' residuals and the devices' errors are those of these objects; noise,
/// findings and the target's shape are those of the pair of devices by itself, and so is the covariance that
/// an object carries: it knows nothing of the third device, so that the object is rather better.
struct RigCalibration {
  StereoCalibration pair;     ///< both cameras
  ScannerCalibration scanner; ///< camera 0 and the projector
  /// Camera 1 and the projector. Its pose carries its points into the frame of camera 0, as
  /// `Sl3dScanner::setPose` says.
  ScannerCalibration second;
  RigClosure closure; ///< how well they fit together
};

/// Calibrates two cameras and a projector together.
///
/// The cameras are those of `calibrateStereo`, from all views of which both see the target. With them held,
/// lens and place of the projector are adjusted to what both cameras see of its light: a dot that camera 1
/// sees counts where camera 0 would see it. A view that does not serve one of the three pairs still serves
/// the others.
/// @param views    three or more that serve each pair
/// @param settings `camera` and `camera1` are the two cameras'; `isAdjusted` must be set
/// @throws Exception as `calibrateScanner` and `calibrateStereo`, saying which pair it is about; when the
///         three pairs do not fit together, as of cameras that were moved or exchanged in some views
/// @throws Cancelled when the observer stops it
VORN_API RigCalibration calibrateRig(std::vector<RigView> const& views, CalibrationSettings const& settings,
                                     Observer* observer = nullptr);

/// Gives what one camera (0 or 1) saw in view number i, from any thread, several at a time. An `Exception`
/// that it throws becomes the view's reason.
using RigViewSource = std::function<ScannerView(std::size_t view, std::size_t camera)>;

/// The same from views that are made when they are needed, such as read from files.
/// @param names of all views
VORN_API RigCalibration calibrateRig(std::vector<std::string> const& names, RigViewSource const& view,
                                     CalibrationSettings const& settings, Observer* observer = nullptr);

} // namespace vorn::mv
