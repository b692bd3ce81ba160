// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/registration/registration.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `registerViews` works. Lengths are in the unit of the clouds; 0 leaves a choice to the clouds' own
/// spacing and noise.
struct ViewsSettings {
  /// Where each view is thought to lie in the common frame: rigid motions, their rotations orthonormal to
  /// 1e-6; empty: all where their coordinates say.
  std::vector<cv::Matx44d> frameFromView;
  /// The view whose place stays; of other groups of views it is their first one.
  std::size_t fixedView = 0;
  /// Points farther apart than this are never the same place. 0: three times what a
  /// view's points usually lie off those of the neighbour that it fits best.
  double maxDistance = 0.0;
  /// Normals of one place differ by at most this angle, in degrees, above 0 .. 90.
  double maxNormalAngle = 45.0;
  /// Steps after which the work ends in any case, 1 .. 1000.
  int maxIterations = 60;
  /// Points of each view to use, at least 100; 0: all. They are spread evenly over it.
  int maxSamples = 40000;
  /// The share of a view's points that must find their place on another for the two to count as overlapping,
  /// above 0 .. 1.
  double minOverlap = 0.05;
};

/// Where a view lies and how well that is known.
struct RegisteredView {
  cv::Matx44d frameFromView = cv::Matx44d::eye(); ///< moves the view's `points()` into the common frame
  std::size_t group = 0;                          ///< which of `ViewsRegistration::groups` it belongs to
  std::size_t matches = 0; ///< points of it and of others that lie on each other, as used
  double rms = 0.0;        ///< RMS distance of these along the normals, weighted as used
  /// Covariance of the view's last small motion against the fixed view of its group, in the common frame:
  /// rotation about `ViewsRegistration::pivot` in rad (x, y, z), translation. 0 for the fixed one. Each pair
  /// of views counts as independent: where three and more see one place, deviations are up to some tenths too
  /// small.
  cv::Matx66d covariance = cv::Matx66d::zeros();
  std::vector<FreeMotion> freeMotions; ///< what the shapes do not hold, in the common frame
};

/// How two views fit.
struct ViewPairFit {
  std::size_t source = 0;  ///< index of the view whose points were used, the later one
  std::size_t target = 0;  ///< index of the view on whose surface they lie, the earlier one
  double overlap = 0.0;    ///< share of the source's points that have a place on the target
  double rms = 0.0;        ///< RMS distance along the normals, weighted as used
  double sigma = 0.0;      ///< robust standard deviation of those distances
  std::size_t matches = 0; ///< points used
};

/// Views of one part in a common frame.
struct VORN_API ViewsRegistration {
  RegistrationStop stop = RegistrationStop::NoOverlap; ///< why it ended; `NoOverlap`: no two views overlap
  int iterations = 0;                                  ///< steps taken, those on coarser samples included
  std::vector<RegisteredView> views;                   ///< as many as there are clouds
  std::vector<ViewPairFit> pairs;                      ///< of views that overlap
  /// Indices of the views that overlaps join, directly or by others, each in rising order. Views of different
  /// groups lie towards each other where they were begun with.
  std::vector<std::vector<std::size_t>> groups;
  double rms = 0.0; ///< over all pairs, weighted as used
  cv::Vec3d pivot;  ///< the middle of all views, in the common frame

  /// Whether overlaps join all views.
  bool isConnected() const { return groups.size() == 1; }
};

/// Finds where all views of a part lie in one frame, from starts that are near enough for corresponding
/// points to be near each other: at once, so that what does not fit is shared among all overlaps, and a loop
/// of views closes, where laying each view onto the one before adds up their errors.
///
/// The squares of the distances between all overlapping views along the mean of both normals are minimised
/// over all places together, each pair of views weighted by the variance of its distances, with the
/// correspondences of `registerClouds`; coarse samples first. Pending transforms are ignored. The same input
/// gives the same bits on any number of threads. Working memory: about 20 bytes a point, without normals 15
/// more, and about 150 bytes a sample for each overlap.
/// @param views two or more
/// @param observer hears of the iterations
/// @throws Exception when a setting is outside its range or a start no rigid motion, there are fewer than two
/// views, a view has fewer
///         than 50 points with a normal or an offset, or one is 30 times as large as another
/// @throws Cancelled when stopped by the observer
VORN_API ViewsRegistration registerViews(std::vector<PointCloud> const& views,
                                         ViewsSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
