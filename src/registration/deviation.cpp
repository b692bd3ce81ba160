// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/deviation.hpp>

#include <cmath>
#include <limits>
#include <sstream>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "pointcloud/point_access.hpp"
#include "registration/surface_matcher.hpp"
#include "registration/surface_registration.hpp"

namespace vorn::mv {

cv::Mat_<float> calcDeviations(PointCloud const& cloud, PointCloud const& surface,
                               DeviationSettings const& settings, Observer* observer) {
  if (!(settings.maxDistance >= 0.0)) {
    std::ostringstream text;
    text << "maxDistance is " << settings.maxDistance << ", not at least 0";
    throw error(text.str(), "calcDeviations");
  }
  cloud.checkSizes();
  surface.checkSizes();
  Progress const progress(observer);
  PointCloud const withDirections = withNormals(surface, progress);
  SurfaceMatcher const matcher(withDirections);
  if (matcher.usableCount() == 0) {
    throw error("The surface has no point with a normal", "calcDeviations");
  }
  double const limit =
      settings.maxDistance > 0.0 ? settings.maxDistance : std::numeric_limits<double>::infinity();
  cv::Matx33d const rotation = settings.surfaceFromCloud.get_minor<3, 3>(0, 0);
  cv::Vec3d const translation(settings.surfaceFromCloud(0, 3), settings.surfaceFromCloud(1, 3),
                              settings.surfaceFromCloud(2, 3));
  cv::Mat_<float> deviations(cloud.points().size(), std::numeric_limits<float>::quiet_NaN());
  // Rows begin their walks anew, and so do stretches of a column of points: results know of no threads.
  constexpr int pointsPerStretch = 256;
  int const columns = cloud.points().cols;
  int const rowsPerStretch = std::max(1, pointsPerStretch / std::max(columns, 1));
  int const stretches = (cloud.points().rows + rowsPerStretch - 1) / rowsPerStretch;
  parallelRows(stretches, 16, progress, "deviations", [&](int first, int end) {
    for (int stretch = first; stretch < end; ++stretch) {
      unsigned last = SurfaceMatcher::none;
      int const endRow = std::min(cloud.points().rows, (stretch + 1) * rowsPerStretch);
      for (int row = stretch * rowsPerStretch; row < endRow; ++row) {
        for (int column = 0; column < columns; ++column) {
          cv::Vec3f const& point = cloud.points()(row, column);
          if (cloud.state()(row, column) != 0 || !isFinite(point.val)) {
            continue;
          }
          cv::Vec3d const moved = rotation * cv::Vec3d(point) + translation;
          unsigned const cell = matcher.find(moved, last, limit);
          if (cell != SurfaceMatcher::none) {
            last = cell;
            deviations(row, column) =
                static_cast<float>(matcher.normalAt(cell).dot(moved - matcher.pointAt(cell)));
          }
        }
      }
    }
  });
  return deviations;
}

} // namespace vorn::mv
