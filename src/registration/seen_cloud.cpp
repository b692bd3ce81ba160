// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/seen_cloud.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>
#include <vorn/mv/pointcloud/measured_count.hpp>

#include "pointcloud/grid_steps.hpp"
#include "pointcloud/list_spacing.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

/// Of a share to a tenth of a per cent, more points say little.
constexpr std::size_t enoughAsked = 25000;

std::size_t strideOf(cv::Mat_<cv::Vec3f> const& points) {
  return std::max<std::size_t>(1, points.total() / enoughAsked);
}

cv::Matx44d fromViewpoint(cv::Vec3d const& viewpoint) {
  cv::Matx44d shift = cv::Matx44d::eye();
  for (int axis = 0; axis < 3; ++axis) {
    shift(axis, 3) = -viewpoint[axis];
  }
  return shift;
}

} // namespace

SeenCloud::SeenCloud(PointCloud& cloud, double noise)
    : viewpoint_(cloud.offset() * -1.0), points_(thinned(cloud)),
      map_(points_, fromViewpoint(viewpoint_), spacing_, std::max(spacing_, 6.0 * noise)) {
  isSeen_ = isBeforeOrigin(cloud) && isItsOwnSight();
}

SightMap SeenCloud::roughly(double cell) const {
  constexpr double cellOverSpacing = 1.5;
  return {points_, fromViewpoint(viewpoint_), std::max(spacing_, cell / cellOverSpacing), cell};
}

double SeenCloud::conflictWith(SeenCloud const& other, cv::Matx44d const& otherFromOwn) const {
  std::size_t seen = 0;
  std::size_t before = 0;
  std::size_t const stride = strideOf(points_);
  for (std::size_t i = 0; i < points_.total(); i += stride) {
    cv::Vec3f const& point = points_(static_cast<int>(i));
    cv::Vec4d const moved = otherFromOwn * cv::Vec4d(point[0], point[1], point[2], 1.0);
    Sight const sight = other.map_.of(cv::Vec3f(cv::Vec3d(moved[0], moved[1], moved[2])));
    seen += sight == Sight::Seen ? 1 : 0;
    before += sight == Sight::SeenThrough ? 1 : 0;
  }
  constexpr std::size_t fewest = 50;
  return seen + before < fewest ? 0.0 : static_cast<double>(before) / static_cast<double>(seen + before);
}

cv::Mat_<cv::Vec3f> SeenCloud::thinned(PointCloud& cloud) {
  constexpr double most = 100000.0;
  bool const isGrid = cloud.isOrganized() && cloud.isContinous();
  cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
  double const stride = std::max(1.0, std::sqrt(static_cast<double>(measuredCount(cloud)) / most));
  int const step = isGrid ? static_cast<int>(std::ceil(stride)) : 1;
  std::size_t const skip = isGrid ? 1 : static_cast<std::size_t>(std::ceil(stride * stride));
  spacing_ = static_cast<double>(isGrid ? gridSpacingOf(points, cloud.state()) : listSpacingOf(cloud)) *
             (isGrid ? step : std::sqrt(1.0 * static_cast<double>(skip)));
  std::vector<cv::Vec3f> kept;
  std::size_t count = 0;
  for (int row = 0; row < points.rows; row += step) {
    for (int column = 0; column < points.cols; column += step) {
      if (isThere(cloud, row, column) && count++ % skip == 0) {
        kept.push_back(points(row, column));
      }
    }
  }
  return cv::Mat_<cv::Vec3f>(kept, true);
}

/// Whether all points but strays lie before the origin, and it stands off.
bool SeenCloud::isBeforeOrigin(PointCloud const& cloud) const {
  std::vector<float> depths;
  std::size_t const stride = strideOf(points_);
  for (std::size_t i = 0; i < points_.total(); i += stride) {
    depths.push_back(points_(static_cast<int>(i))[2]);
  }
  if (depths.empty()) {
    return false;
  }
  std::size_t const strays = depths.size() / 100; // at either end
  auto const lowest = depths.begin() + static_cast<std::ptrdiff_t>(strays);
  auto const highest = depths.end() - 1 - static_cast<std::ptrdiff_t>(strays);
  std::nth_element(depths.begin(), lowest, depths.end());
  double const low = static_cast<double>(*lowest) + cloud.offset()[2];
  std::nth_element(depths.begin(), highest, depths.end());
  double const high = static_cast<double>(*highest) + cloud.offset()[2];
  return low > 0.0 && low > 0.5 * (high - low);
}

/// Whether no surface hides another from the origin.
bool SeenCloud::isItsOwnSight() const {
  constexpr double least = 0.98;
  std::size_t const stride = strideOf(points_);
  std::size_t asked = 0;
  std::size_t seen = 0;
  for (std::size_t i = 0; i < points_.total(); i += stride) {
    ++asked;
    seen += map_.of(points_(static_cast<int>(i))) == Sight::Seen ? 1 : 0;
  }
  return static_cast<double>(seen) >= least * static_cast<double>(asked);
}

} // namespace vorn::mv
