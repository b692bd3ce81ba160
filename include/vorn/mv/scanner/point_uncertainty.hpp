// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

class Sl3dScanner;
struct Adjustment;
struct AdjustmentView;

/// A pixel of the camera and the projector coordinate that it sees.
struct ScannerSighting {
  cv::Point2d pixel;     ///< of the camera
  double coordinate = 0; ///< column ("Horizontal") or row ("Vertical") of the projector, pixels
  double sigma = 0;      ///< one standard deviation of the coordinate, projector pixels
};

/// A point and the covariance of its place, in two parts.
///
/// The calibration's part is common to neighbouring points: no averaging makes it smaller. The noise's part
/// is each point's own.
struct UncertainPoint {
  cv::Point3d point;       ///< in the frame of the scanner's pose
  cv::Matx33d calibration; ///< from the calibration's error, that of the target's pitch too
  cv::Matx33d noise;       ///< from the noise of the coordinate

  /// Both parts together.
  cv::Matx33d covariance() const { return calibration + noise; }
};

/// The distance of two points, and one standard deviation of it by what causes it.
struct UncertainLength {
  double length = 0;      ///< the distance
  double calibration = 0; ///< from the calibration's error, which both ends share as far as they are near
  double noise = 0;       ///< from the noise of both coordinates
  double pitch = 0;       ///< from the error of the target's pitch

  /// One standard deviation of the length, from all of them.
  [[nodiscard]] VORN_API double sigma() const;
};

/// A part of what camera and projector both see: all of it between two depths.
struct WorkingVolume {
  double nearest = 0;  ///< depth along the camera's axis, above 0
  double farthest = 0; ///< the same, not below `nearest`
};

/// What a calibration is expected to be wrong by over a volume: root mean squares of one standard deviation,
/// the error of the target's pitch left out, which changes all lengths by the same share.
struct PredictedError {
  double raw = 0;         ///< of the points as they are
  double rigid = 0;       ///< of their shape: after the rigid motion that fits best
  double scale = 0;       ///< of the size of the whole volume, relative
  double bar = 0;         ///< of lengths of `barLength` in seven directions; 0 where none fits in
  double barLength = 0;   ///< of the lengths that `bar` is about
  int barCount = 0;       ///< how many such lengths count
  cv::Point3d worstPlace; ///< where the shape is worst, in the camera's frame
  double worst = 0;       ///< and by how much
  int pointCount = 0;     ///< places that count
  WorkingVolume volume;   ///< what it is about: it holds no farther
};

/// The error of points of a scanner that knows how well it is calibrated.
///
/// From the scanner's covariance C and the derivatives J of a point by the parameters of the calibration:
/// J C J'. A point moves along its ray with the coordinate: with dX/dc, which gives the noise's part. The
/// pixel counts as exact, as the pixels of an image are.
class VORN_API PointUncertainty {
public:
  /// @param scanner calibrated, with a covariance (`Sl3dScanner::setCovariance`); its "ScannerType" says what
  ///        the coordinates are
  /// @throws Exception for a scanner without one or the other
  explicit PointUncertainty(Sl3dScanner const& scanner);

  /// The point of one sighting.
  /// @throws Exception for a pixel whose ray does not meet its coordinate's light in front of both devices,
  ///         and for a `sigma` that is negative or not finite
  [[nodiscard]] UncertainPoint at(ScannerSighting const& sighting) const;

  /// The distance of the points of two sightings, whose calibration parts are correlated.
  /// @throws Exception as `at`, and for two sightings of one point
  [[nodiscard]] UncertainLength between(ScannerSighting const& a, ScannerSighting const& b) const;

  /// What the calibration is expected to be wrong by over a volume.
  /// @param barLength of the lengths that `bar` is about, in the unit of the target
  /// @throws Exception for depths out of order, a `barLength` that is not above 0, and for a volume that
  ///         camera and projector do not both see
  [[nodiscard]] PredictedError over(WorkingVolume const& volume, double barLength = 100) const;

private:
  struct Private;
  std::shared_ptr<Private const> own_;
};

/// The depths that the target had in the views of an adjustment: where the calibration is held by
/// measurements.
/// @param views those that were adjusted
/// @throws Exception for other views
[[nodiscard]] VORN_API WorkingVolume workingVolume(Adjustment const& adjustment,
                                                   std::vector<AdjustmentView> const& views);

} // namespace vorn::mv
