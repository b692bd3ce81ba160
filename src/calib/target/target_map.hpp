// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "calib/target/dot_grid.hpp"
#include "calib/target/target_finder.hpp"

namespace vorn::mv {

/// The map from grid indices (fractional ones too) to the image near one place of the target: a homography
/// for the perspective, plus a polynomial of second degree at most for what the lens adds to it there.
class LocalMap {
public:
  /// `offset` holds the polynomial's coefficients of 1, x, y, x², xy, y², with x and y counted from `centre`.
  LocalMap(cv::Matx33d const& homography, cv::Point2d const& centre, std::array<cv::Point2d, 6> const& offset,
           double variance)
      : homography_(homography), centre_(centre), offset_(offset), variance_(variance) {}

  cv::Point2d position(cv::Point2d const& index) const;
  /// The derivatives of `position`: columns are the image steps of one pitch along x and along y.
  cv::Matx22d jacobian(cv::Point2d const& index) const;
  /// The variance of `position` at the centre, in units of the variance of the dots that the map was fitted
  /// to.
  double variance() const { return variance_; }

  /// How far the centre of area of the image of a disc lies from the image of its centre. `radius` in
  /// pitches.
  ///
  /// Perspective shows the nearer half of a disc larger than the farther one, so the two differ, by up to
  /// tenths of a pixel (J. Heikkila, "Geometric camera calibration using circular control points", IEEE TPAMI
  /// 22(10), 2000). The centre of area is integrated over the disc through this map, with its Jacobian as
  /// weight, so the lens's distortion enters as well.
  cv::Point2d discOffset(cv::Point2d const& index, double radius) const;

private:
  cv::Matx33d homography_;
  cv::Point2d centre_;
  std::array<cv::Point2d, 6> offset_;
  double variance_;
};

/// A dot near the centre of a local map.
struct MapSample {
  cv::Point2d step;     ///< from the centre, pitches
  cv::Point2d residual; ///< of the homography, pixels
};

/// The map from grid indices to the image over a whole target, from the dots found so far.
class TargetMap {
public:
  /// Empty when the dots do not determine a homography.
  static std::optional<TargetMap> fit(std::vector<TargetDot> const& dots);

  enum class Self { Included, LeftOut };

  /// The map around an index, from the dots up to `reach` steps away; `LeftOut` leaves out the dot at the
  /// index itself, to predict it from the others. Empty where too few dots are near.
  std::optional<LocalMap> around(cv::Point const& index, Self self, int reach = 2) const;

  /// How far the area of a cell at an index is uncertain, as a share of it, from how well the dots around
  /// follow their local map without the dot there. A bent target is not what that map has; at the target's
  /// rim, with dots on one side only, the area suffers most. Nothing where too few dots are near to tell.
  std::optional<double> cellSpread(cv::Point const& index) const;

private:
  TargetMap(std::vector<TargetDot> dots, cv::Matx33d const& homography);

  std::vector<MapSample> samplesAround(cv::Point const& index, Self self, int reach) const;

  std::vector<TargetDot> dots_;
  cv::Matx33d homography_;
  std::vector<cv::Point2d> residuals_;
  GridIndex index_;
};

} // namespace vorn::mv
