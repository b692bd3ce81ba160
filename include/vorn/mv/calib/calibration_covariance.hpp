// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

struct Adjustment;

/// How well the parameters of a calibrated object are known, and how their errors hang together.
///
/// `CameraModel`, `StereoCamera` and `Sl3dScanner` carry one from the adjustment that they come from, also
/// through their documents, as "Covariance". Parameters that are not named count as known.
struct CalibrationCovariance {
  /// What the rows of `matrix` are, by the names of `Adjustment::parameters`: "fx0", "fy0", "cx0", "cy0"
  /// (pixels), "k1_0" ... "k6_0", "p1_0", "p2_0", "s1_0" ... "s4_0" of the (first) camera, the same with 1
  /// for 0 of the second camera or the projector, and of the transform between the two "rx", "ry", "rz" (a
  /// small turn of device 1 in the frame of device 0, radians) and "tx", "ty", "tz" (a shift, in the unit of
  /// the target).
  std::vector<std::string> parameters;
  /// n x n CV_64F, the products of the units.
  cv::Mat matrix;
  /// One standard deviation of all lengths together, relative: of the target's pitch. 0 where it counts as
  /// known.
  double scaleSigma = 0;

  /// Whether nothing is known about the parameters' errors.
  bool isEmpty() const { return parameters.empty(); }

  /// One standard deviation of a parameter; 0 for one that is not named.
  [[nodiscard]] VORN_API double sigmaOf(std::string const& parameter) const;

  /// @throws Exception that names the member: for unknown or repeated parameters, a matrix that is not n x n
  ///         CV_64F, finite, symmetric and positive semidefinite, a `scaleSigma` that is negative or not
  ///         finite
  VORN_API void check() const;
};

/// What an adjustment knows of its parameters, to be kept with the object that is made of it:
/// `scanner.setCovariance(covarianceOf(adjustment))`.
/// @param relativePitchSigma one standard deviation of the target's pitch, relative to the pitch; 0 where it
///        counts as exact
/// @throws Exception for a `relativePitchSigma` that is negative or not finite
[[nodiscard]] VORN_API CalibrationCovariance covarianceOf(Adjustment const& adjustment,
                                                          double relativePitchSigma = 0);

} // namespace vorn::mv
