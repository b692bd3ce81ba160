// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/scanner/calibration.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One pose of the target before a structured-light scanner.
struct ScannerView {
  std::string name; ///< for messages and reports
  cv::Mat target;   ///< the target under plain light
  /// Under the column sequence, in the order of `generate_ps4_patterns`: 8- or 16-bit unsigned or
  /// floating-point pixels of one or three channels, all of one type.
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows; ///< under the row sequence
};

/// A calibrated structured-light scanner; its views' devices are the camera and the projector.
struct ScannerCalibration : Calibration {
  Sl3dScanner object; ///< its camera, its projector and the transform between them
};

/// Calibrates a structured-light scanner from views of the target.
///
/// Views that do not serve are left out and say why: no target or too few dots, no markers, another image
/// size, images of a sequence that contradict each other, such as two that were exchanged (as
/// `ScanResult::doubts`), light that does not reach enough dots, a reprojection error far above the others'.
/// Views are detected and decoded in parallel, with the same result to the bit whatever the number of
/// threads.
///
/// Working memory: for each view in work what `CalibPatternDetector::detect` takes or 27 bytes a pixel,
/// beside its images.
/// @param views    three or more, five to fifteen as a rule, tilted to different sides
/// @param observer asked between the detections and the decodings of single views, which are not interrupted
///        on the way longer than a stage of theirs, and before and after the adjustment, which is one call of
///        `cv::calibrateCamera` a device
/// @throws Exception when fewer than three views are left, naming every view with its reason; when all views
///         show the target from the same side, which leaves the focal length undetermined, or do not agree on
///         where camera and projector stand to each other; for settings out of their range
/// @throws Cancelled when the observer stops it
VORN_API ScannerCalibration calibrateScanner(std::vector<ScannerView> const& views,
                                             CalibrationSettings const& settings,
                                             Observer* observer = nullptr);

/// Gives view number i, from any thread, several at a time. An `Exception` that it throws
/// becomes the view's reason.
using ScannerViewSource = std::function<ScannerView(std::size_t)>;

/// The same from views that are made when they are needed, such as read from files: only as many as there are
/// threads are in memory at a time.
/// @param names of all views; those that the source gives do not count
VORN_API ScannerCalibration calibrateScanner(std::vector<std::string> const& names,
                                             ScannerViewSource const& view,
                                             CalibrationSettings const& settings,
                                             Observer* observer = nullptr);

} // namespace vorn::mv
