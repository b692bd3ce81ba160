// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/calib/diagnosis.hpp>
#include <vorn/mv/calib/laser_color.hpp>
#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/calib/target_description.hpp>
#include <vorn/mv/scanner/next_view.hpp>
#include <vorn/mv/scanner/point_uncertainty.hpp>
#include <vorn/mv/scanner/view_figures.hpp>

/// What all calibrations from target views have in common: settings, what became of every view, figures.
namespace vorn::mv {

/// What views of the target are calibrated with.
struct CalibrationSettings {
  /// Finds the target, unless `target` describes it. Its "PatternDim" is the unit of all lengths: the pitch
  /// of your target, in mm.
  CalibPatternDetector detector;
  /// What the target is, of any kind, size and polarity, with marks or without. When it is given, it is found
  /// by `detectTarget` in images of any depth, its pitch is the unit of all lengths and `detector` is not
  /// used.
  ///
  /// A target that looks the same turned serves: a camera may count it either way, and two cameras are made
  /// to count alike by how they stand to each other in all views. Deviations of its dots need marks that tell
  /// the dots apart.
  std::optional<TargetDescription> target;
  /// Bounds of the search for `target`.
  DetectSettings detect;
  /// The projector's pixels; empty to take them from the decoded images.
  cv::Size projector;
  /// How laser lines are looked for; their direction is found.
  LaserLineOptions line = overexposedToo();
  /// A view whose reprojection error exceeds that of the middle view by more than this factor is left out,
  /// and the rest is calibrated once more. 1 or more; infinity keeps every view.
  double outlierRatio = 3.0;
  /// But no view with a reprojection error below this is, pixels. 0 or more.
  double outlierError = 0.1;
  /// Whether lenses, poses, the target's shape and the transform are adjusted together and the views
  /// diagnosed after each device was calibrated by itself; of a laser line scanner its planes with them.
  bool isAdjusted = true;
  /// How they are adjusted. Where the dots of a target cannot be told apart in every view, it is taken as
  /// flat.
  AdjustmentSettings adjustment;
  /// Whether thin prism terms are freed as well when the views show that a lens needs them
  /// (`FindingCause::LensModel`), as by `AdjustmentSettings::Lens::ThinPrism`; otherwise that is only said.
  bool isLensExtended = true;
  /// A (first) camera that was calibrated elsewhere, such as one of `readOpenCvCamera`: the adjustment starts
  /// from it, and with `adjustment.holdCamera0` keeps it as it is. Coefficients beyond those that
  /// `adjustment.lens` frees stay as they are in any case. Its resolution, unless it is 0 x 0, must be that
  /// of the images. Needs `isAdjusted`; not for laser line scanners.
  std::optional<CameraModel> camera;
  /// The same of the second one of two cameras, with `adjustment.holdCamera1`.
  std::optional<CameraModel> camera1;
  /// Whether views are refused in which a device was moved, or its focus changed, from one view to the next:
  /// no calibration holds for them all. Otherwise it only stands among the findings.
  bool isRefused = true;
  /// The level at which the camera's pixels are full, in the levels of the images of a projector's light or a
  /// laser's; 0 to find it, as `ScanSettings::whiteLevel`.
  double whiteLevel = 0.0;
  /// What of colour images of laser lines counts; none to find it in each view, by `findLaserColor`.
  std::optional<LaserColor> laserColor;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// Points of the target that one device sees in one view, and how far the calibrated model misses them.
struct ViewPoints {
  std::vector<cv::Point2f> imgPnts; ///< pixels of the device
  std::vector<cv::Point2f> objPnts; ///< positions on the perfect target, one for each
  /// Pixels of dots that an adjustment left out as they are not where they should be.
  std::vector<cv::Point2f> strayPnts;
  /// Model minus measurement, pixels, one for each; empty when the view took no part.
  std::vector<cv::Point2f> residuals;
  /// The same with the pose taken from the other device and carried over by the transform between the two;
  /// where a calibration reckons it.
  std::vector<cv::Point2f> jointResiduals;
  /// How exact each pixel is along x and y, one standard deviation, pixels; of a projector's, what reading it
  /// adds to the camera's error. Empty where it is not known.
  std::vector<cv::Point2f> sigmas;
};

/// Root of the mean squared length, pixels; 0 for no residuals.
VORN_API double rms(std::vector<cv::Point2f> const& residuals);

/// A laser line on the target in one view.
struct ViewLine {
  std::vector<cv::Point2f> imgPnts; ///< pixels; none where it misses the target
  double planeRms = 0.0;            ///< root of the mean squared distance from the laser's plane, mm
};

/// What became of one view.
struct CalibratedView {
  std::string name; ///< as it was given
  /// Why the view takes no part; empty when it does.
  std::string reason;
  /// What is missing in a view that takes part all the same; mostly empty.
  std::string remark;
  /// Whether every device's image tells which dot of the target is which; where the target looks the same
  /// turned, it is taken as turned least against the image.
  bool isCounted = true;
  /// In how many ways the first device's image lets the dots be counted: 2 or 4 where the target looks the
  /// same turned, 0 where it is not all in view. An adjustment counts them so that one shape of the target
  /// fits all views, where they show any.
  int readings = 1;
  /// The target as each device sees it, the first one a camera.
  std::vector<ViewPoints> devices;
  /// The laser lines, where the calibration has any.
  std::vector<ViewLine> lines;
  /// What the images tell beside the points; of a scanner's views, when they are adjusted.
  std::optional<ViewFigures> figures;

  /// Whether the view takes part.
  bool isUsed() const { return reason.empty(); }
};

/// How well one device is calibrated.
struct DeviceReport {
  std::string name;          ///< "camera", "projector", "camera_1"
  cv::Size resolution;       ///< pixels
  double rms = 0.0;          ///< reprojection error over all used views, pixels
  double jointRms = 0.0;     ///< of the joint residuals; 0 where there are none
  bool isCalibrated = false; ///< whether the error is below half a pixel
};

/// How well one laser plane is calibrated.
struct PlaneReport {
  std::size_t points = 0; ///< of its line in all used views
  double rms = 0.0;       ///< of their distances from the plane, mm
  /// One standard deviation of where the plane lies, along its normal, root mean square over the points, mm;
  /// 0 without an adjustment.
  double sigma = 0.0;
};

/// The figures of a calibration.
struct CalibrationReport {
  std::vector<DeviceReport> devices; ///< in the order of `CalibratedView::devices`
  std::vector<PlaneReport> planes;   ///< of a laser line scanner
  /// Largest deviation of R^T R from the identity, R the averaged rotation between two devices: about the
  /// square of the angle, in radians, by which the views differ.
  double rotationDefect = 0.0;
  /// Whether the projector's pixels were taken from the images.
  bool isProjectorGuessed = false;
  /// The adjustment of all used views together, in their order: noise, uncertainty, the target's shape. None
  /// when it was not wanted or not possible.
  std::optional<Adjustment> adjustment;
  /// Why there is no adjustment though it was wanted; else empty.
  std::string notAdjusted;
  /// Why the adjustment looked for less of the target's shape than was wanted: the target looks the same
  /// turned, and the views do not tell how it is turned in each; or found less of it, as the views do not
  /// determine more. Else empty.
  std::string shapeLimit;
  /// How far the devices stand elsewhere to each other in each used view, in their order; with an adjustment
  /// of two devices.
  std::vector<TransformDeviation> deviations;
  /// What the calibration is expected to be wrong by where the target was; of an adjusted scanner.
  std::optional<PredictedError> predicted;
  /// The same over twice these depths about their middle, where a target that was hardly tilted or moved in
  /// depth says little; none where the devices do not see so much.
  std::optional<PredictedError> predictedBeyond;
  /// Where one more view of the target would lower that most; of an adjusted scanner. None where no pose
  /// shows both devices as much of the target as the views did.
  std::optional<NextView> nextView;
  /// Why there is no next view though a scanner was adjusted; else empty.
  std::string noNextView;
  /// What is wrong with the views, or should be known. `Finding::view` counts in `Calibration::views`; what
  /// is said of a view that is not used is why it was left out.
  std::vector<Finding> findings;
  /// The causes that these views cannot show, such as those of fringe images where there are none.
  std::vector<FindingCause> untested;
};

/// What every calibration gives beside the calibrated object.
struct Calibration {
  std::vector<CalibratedView> views; ///< all views in their order, those left out too
  CalibrationReport report;          ///< how well it turned out
};

/// The figures and what became of every view, as `vorn-mv calibrate --report` writes them.
VORN_API nlohmann::json toJson(Calibration const& calibration);

} // namespace vorn::mv
