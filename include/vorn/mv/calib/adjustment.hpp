// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/target_shape.hpp>

namespace vorn::mv {

/// What one or two devices saw of a target in one pose.
struct AdjustmentView {
  /// For messages and results.
  std::string name;
  /// The dots' places on the perfect target, in its unit.
  std::vector<cv::Point2f> objPnts;
  /// Their pixels in the camera (camera 0); NaN for dots that it did not see.
  std::vector<cv::Point2f> points0;
  /// Their pixels in camera 1 or the projector; NaN for dots without. Empty for a single camera.
  std::vector<cv::Point2f> points1;
  /// How exact each dot's pixel in the camera is, one standard deviation; only the ratios count, among the
  /// dots of all views where every view has them, else among those of this one. Empty: all alike.
  std::vector<float> sigmas;
  /// The same of each dot's pixel in camera 1, along x and along y; of a projector's, what reading it adds
  /// to the camera's error, as `find_projector_points` tells it. Anything for dots without such a pixel.
  /// Empty: as `sigmas`.
  std::vector<cv::Point2f> sigmas1 = {};
};

/// How `adjustCamera` and its kind adjust.
struct AdjustmentSettings {
  /// The coefficients of a lens that are free.
  enum class Lens {
    FiveCoefficients, ///< k1, k2, p1, p2, k3
    ThinPrism         ///< and s1, s2, s3, s4, which lenses of a wide field may need
  };
  /// What shape a target may have.
  enum class Shape {
    Auto,   ///< the simplest that the views do not contradict at a level of one in a thousand
    Flat,   ///< dots exactly where they should be
    Smooth, ///< bent or stretched, by polynomials of degree 6 and 3
    Dots,   ///< every dot by itself
    Bent    ///< as `Auto`, flat or of heights of degree 2, which half a turn of the target does not change
  };

  /// The coefficients of a lens that are free; others keep the values that a given model has.
  Lens lens = Lens::FiveCoefficients;
  /// What shape the target may have.
  Shape shape = Shape::Auto;
  /// Keeps the first model as it is given: a camera calibrated elsewhere.
  bool holdCamera0 = false;
  /// Keeps the second model as it is given.
  bool holdCamera1 = false;
  /// Dots farther from where a device by itself expects them than so many standard deviations (of their view,
  /// robustly) are left out. At least 3.
  double outlierLimit = 6;
  /// Limit of the rounds of one solution. At least 1.
  int maxIterations = 50;
};

/// One view in an adjustment.
struct ViewAdjustment {
  /// That of the AdjustmentView.
  std::string name;
  /// Dots that count.
  int dotCount = 0;
  /// Indices in the view of the dots that were left out as outliers.
  std::vector<int> leftOut;
  /// Root mean square of the residuals in the (first) camera, both coordinates together, pixels.
  double rms0 = 0;
  /// The same in camera 1. For a projector: of its residuals less the part that the errors of the camera's
  /// points explain.
  double rms1 = 0;
};

/// The noise of one coordinate of a point, pixels.
struct AdjustmentNoise {
  /// In the (first) camera.
  double camera0 = 0;
  /// In camera 1. For a projector: of its points less the part that the errors of the camera's points
  /// explain.
  double camera1 = 0;
};

/// The result of an adjustment.
struct Adjustment {
  /// The camera, or both cameras, or camera and projector; "Error" is the root mean square residual.
  std::vector<CameraModel> models;
  /// From camera 1 (projector) to camera 0; the identity for a single camera.
  cv::Matx44d transform = cv::Matx44d::eye();
  /// From the target to camera 0, of every view.
  std::vector<cv::Matx44d> poses;
  /// The target's true shape, as far as the views tell.
  TargetShape shape;
  /// What the rows of `covariance` are: "fx0" ... "k3_0" of the first model (with "s1_0" ... for thin prism
  /// terms), the same of the second one with 1 for 0, then "rx", "ry", "rz" (a small turn of camera 1 in the
  /// frame of camera 0, radians) and "tx", "ty", "tz" (a shift) of the transform. Parameters that are held
  /// are left out.
  std::vector<std::string> parameters;
  /// The covariance of the parameters, n x n CV_64F, with poses and shape unknown as they are.
  cv::Mat covariance;
  /// The parameters' standard deviations, the roots of its diagonal.
  std::vector<double> sigmas;
  /// How much greater the residuals are than what dots differ by from their neighbours: 1 where the model is
  /// right.
  double s0 = 1;
  /// The noise of the points as the residuals show it.
  AdjustmentNoise noise;
  /// The noise that dots do not share with their neighbours: what `s0` compares the residuals with.
  AdjustmentNoise localNoise;
  /// Whether the points of the second device were taken as read where the first one sees the dots.
  bool isRead = false;
  /// One for each given view.
  std::vector<ViewAdjustment> views;
  /// Why the shape is simpler than what the residuals show signs of, with Shape::Auto and Shape::Bent: so few
  /// or so like views do not determine it. Else empty.
  std::string shapeLimit = {};
};

/// The lens, the poses and the target's shape that fit the views of one camera best.
///
/// All adjustments: least squares by Levenberg and Marquardt's method over all unknowns together, the poses
/// eliminated (Schur complement), weights from variance components; no view or dot counts less because it
/// fits worse. Outliers are left out beforehand and said. The same input gives the same bits.
/// Working memory: about 500 bytes a dot and view; with Shape::Dots and Auto besides 400 bytes a pair of the
/// target's dots.
/// @param views at least 3 with at least 6 dots each that do not lie on one line; 1 view when the camera is
///        held. Lists of `points1` must be empty.
/// @param camera gives the resolution; where it is calibrated, its lens is the start, or held
/// @param observer is told the stage "adjusting" and may stop it
/// @throws Exception for views or settings that cannot be used, which it names, and when the views do not
///         determine the parameters; `Cancelled` when the observer stops it
[[nodiscard]] VORN_API Adjustment adjustCamera(std::vector<AdjustmentView> const& views,
                                               CameraModel const& camera,
                                               AdjustmentSettings const& settings = {},
                                               Observer* observer = nullptr);

/// The same for two cameras and the transform between them. Errors of the two are independent.
/// @param views at least 3 (1 when both cameras are held) with at least 6 dots in each camera; a dot counts
///        too where one camera alone shows it
[[nodiscard]] VORN_API Adjustment adjustStereo(std::vector<AdjustmentView> const& views,
                                               CameraModel const& camera0, CameraModel const& camera1,
                                               AdjustmentSettings const& settings = {},
                                               Observer* observer = nullptr);

/// The same for a camera and a projector, whose points were read where the camera sees the dots.
///
/// An error of a dot's pixel c is carried into its projector point p, as that is looked up at the wrong
/// place. The residuals c - m_c and p - m_p - M (c - m_c), with m the model's images of the dot and M the
/// derivative of the projector's by the camera's on the target, are independent again: M comes from the model
/// itself, anew in every round.
/// @param views as of `adjustStereo`; dots without a pixel in the camera do not count
[[nodiscard]] VORN_API Adjustment adjustScanner(std::vector<AdjustmentView> const& views,
                                                CameraModel const& camera, CameraModel const& projector,
                                                AdjustmentSettings const& settings = {},
                                                Observer* observer = nullptr);

} // namespace vorn::mv
