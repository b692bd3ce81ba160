// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/sphere3f.hpp>

namespace vorn::mv {

class PointCloud;

/// What a feature is fitted to: which points count, and how its form error is stated.
struct FitSettings {
  /// A point farther from the feature than this many standard deviations is an outlier: it takes no part. The
  /// standard deviation is judged by the nearer half of the points, so most of them must belong to the
  /// feature. Infinity takes every point. More than 0. Among fewer points than twice the feature's unknowns
  /// and two nobody can tell, so all are taken.
  double outlierSigmas = 5.0;
  /// Where it is more than 0: a point farther from the feature than this is an outlier, in the unit of the
  /// points, and "outlierSigmas" says nothing. For features that fewer than half of the points belong to: the
  /// one that most points are that near is searched for, the others being anything. Of a share of 9 %
  /// (sphere) or 4 % (plane) of the points it is found with certainty, of smaller ones where its points are
  /// the nearest to each other. A sphere's points that lie in one plane to within this distance as well come
  /// second.
  double outlierDistance = 0.0;
  /// The share of the inliers that the form error covers; the same number is left out at either end. 0.997
  /// leaves out 3 points in 1000, as VDI/VDE 2634 part 2 does. More than 0, at most 1.
  double formShare = 0.997;
};

/// A feature fitted to points: the one with the least sum of squared distances to the inliers.
template <class Feature>
struct Fit {
  /// What was fitted, in the frame and unit of the points.
  Feature feature;
  /// The places in the list of points, or the cells of the cloud row by row, that the feature was fitted to;
  /// ascending.
  std::vector<std::size_t> inliers;
  /// Form error: the width of the band of the inliers' residuals, "formShare" of them, in the points' unit.
  double form = 0.0;
  /// The signed distance of every point, inlier or not, in the points' order and unit; NaN for the cells of a
  /// cloud where no finite point is present. Positive outside a sphere, and on the side of a plane that its
  /// normal points to.
  std::vector<double> residuals;
  /// Covariance of the feature's numbers from the inliers' scatter, CV_64FC1, symmetric: independent noise of
  /// equal size is presumed. NaN when there are no more inliers than unknowns.
  /// Sphere: 4 x 4, centre x, y, z and radius.
  /// Plane: 6 x 6, point x, y, z and normal x, y, z. It has rank 3: a plane's point moves along the normal
  /// only, its normal tilts across. At `point()`, the inliers' mean, the two are independent.
  cv::Mat covariance;
};

/// The sphere with the least sum of squared distances to the points, whatever outliers there are.
///
/// Starts from the best of many spheres through a few of the points (least median of squares, Rousseeuw
/// 1984), or through all; then fits the geometric distance | |p - c| - r | by Levenberg and Marquardt's
/// method and sorts out outliers in turn until neither changes. An algebraic fit alone would be biased to a
/// small radius on a cap. With "outlierDistance" it starts from the sphere that most points are that near, of
/// up to 50000 through points near each other or from everywhere. Working memory: 24 bytes a point.
/// @param points finite, at least 4
/// @throws Exception that names the cause: too few points, the index of a point that is not finite, points or
///         inliers that coincide, lie on one line or in one plane to within their scatter (the radius would
///         be uncertain by more than a third of itself); with "outlierDistance": fewer than half of the
///         points that near the best feature, and no more than of scattered points by chance (L. Moisan and
///         B. Stival, "A Probabilistic Criterion to Detect Rigid Point Matches", IJCV 57, 2004); a setting
///         out of its range
VORN_API Fit<Sphere3f> fitSphere(std::vector<cv::Point3f> const& points, FitSettings const& settings = {});
/// The same of the present, finite points of a cloud. Working memory: 36 bytes a point.
VORN_API Fit<Sphere3f> fitSphere(PointCloud const& cloud, FitSettings const& settings = {});

/// The plane with the least sum of squared distances to the points, whatever outliers there are.
///
/// As `fitSphere`, with the plane through the inliers' mean across the direction of their least scatter. The
/// normal points to the side where the origin lies (in camera coordinates: towards the camera); of a plane
/// through the origin, the normal's largest component is positive.
/// @param points finite, at least 3
/// @throws Exception as `fitSphere`, for points that coincide or lie on one line to within their scatter
VORN_API Fit<Plane3f> fitPlane(std::vector<cv::Point3f> const& points, FitSettings const& settings = {});
/// The same of the present, finite points of a cloud.
VORN_API Fit<Plane3f> fitPlane(PointCloud const& cloud, FitSettings const& settings = {});

} // namespace vorn::mv
