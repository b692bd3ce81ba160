// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// Which of a surface's two sides normals point to.
enum class NormalOrientation {
  Automatic,        ///< `TowardsViewpoint` for organized clouds, else `Consistent`
  TowardsViewpoint, ///< to the side of `NormalSettings::viewpoint`, point by point
  Consistent ///< neighbours alike; each connected piece outwards, or to the viewpoint where it has no inside
};

/// Whether `PointCloud::calcNormals` also says how well the planes fit.
enum class NormalFigures {
  None,
  FitAndCurvature ///< fills `NormalResult::fitError` and `NormalResult::curvature`
};

/// How `PointCloud::calcNormals` finds normals.
struct NormalSettings {
  /// Organized clouds: the plane at a point is fitted to the cells at most so many rows and columns away,
  /// 1 .. 31. Noise of the normals falls with its square, detail below its size is smoothed.
  int windowRadius = 6;
  /// Organized clouds: neighbours farther apart in space than this, in the cloud's unit and times the cells
  /// between them, lie on different surfaces. 0: six times the median distance of neighbours, for rows and
  /// columns each.
  float maxStep = 0.0F;
  /// Other clouds: the plane is fitted to so many nearest points, the point itself included, 3 .. 1000.
  /// Points exactly as far as the last one count too.
  int neighbourCount = 20;
  /// Other clouds: if above 0, the plane is fitted to the points nearer than this instead.
  float radius = 0.0F;
  /// Which side normals point to.
  NormalOrientation orientation = NormalOrientation::Automatic;
  /// Where the surface was seen from, in the cloud's frame: the sensor's origin.
  cv::Point3f viewpoint{0.0F, 0.0F, 0.0F};
  /// What to compute besides.
  NormalFigures figures = NormalFigures::None;
};

/// What `PointCloud::calcNormals` found.
struct NormalResult {
  std::size_t computed = 0; ///< present points that have a normal
  std::size_t missing = 0;  ///< present points that have none: their normal is (0, 0, 0)
  /// As large as the cloud, if asked for: RMS distance of a point's neighbours to their plane, in the cloud's
  /// unit; NaN without normal.
  cv::Mat_<float> fitError;
  /// As large as the cloud, if asked for: the share of the neighbours' scatter that lies off their plane, 0
  /// for a plane to 1/3 for a heap ("surface variation": M. Pauly, M. Gross and L. P. Kobbelt, "Efficient
  /// Simplification of Point-Sampled Surfaces", IEEE Visualization 2002); NaN without normal.
  cv::Mat_<float> curvature;
};

} // namespace vorn::mv
