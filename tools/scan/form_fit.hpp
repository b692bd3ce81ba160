// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>

namespace vorn::tools {

/// Figures of measured artefacts in the sense of VDI/VDE 2634 part 2: a form error is the width of the band
/// of deviations from the best-fit shape once the worst 3 in 1000 points are left out.

struct SphereFit {
  cv::Vec3d centre;
  double radius = 0.0;
  double formError = 0.0;
};

/// The sphere with the least sum of squared distances to the points (Gauss-Newton on the geometric distance
/// from an algebraic start).
/// @throws Exception for fewer than 4 points or points that determine no sphere
SphereFit fitSphere(std::vector<cv::Vec3d> const& points);

struct PlaneFit {
  cv::Vec3d point;
  cv::Vec3d normal;
  double flatness = 0.0;
  double rms = 0.0;
};

/// The plane with the least sum of squared distances to the points.
/// @throws Exception for fewer than 3 points
PlaneFit fitPlane(std::vector<cv::Vec3d> const& points);

/// The value below which the given share of `values` lies; 0 for none.
double quantile(std::vector<double> values, double share);

} // namespace vorn::tools
