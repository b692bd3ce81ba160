// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/list_spacing.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>
#include <vorn/mv/pointcloud/measured_count.hpp>

#include "core/median.hpp"
#include "pointcloud/flat_states.hpp"
#include "pointcloud/octree_nearest.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

/// The squared distance to the nearest place but the query's own.
class NearestOtherPlace {
public:
  float worst() const { return square_; }
  void add(unsigned /*index*/, float square) { square_ = square > 0.0F ? square : square_; }

private:
  float square_ = std::numeric_limits<float>::max();
};

/// A few thousand places with points, each once: where many points share one, it counts no more than others.
std::vector<cv::Vec3f> sampledPlaces(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                                     std::size_t count) {
  constexpr std::size_t sampled = 4000;
  std::size_t const stride = std::max<std::size_t>(1, count / sampled);
  std::vector<cv::Vec3f> places;
  std::size_t present = 0;
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      cv::Vec3f const& point = points(row, column);
      if (state(row, column) == 0 && isFinite(point.val) && present++ % stride == 0) {
        places.push_back(point);
      }
    }
  }
  std::sort(places.begin(), places.end(), [](cv::Vec3f const& a, cv::Vec3f const& b) {
    return std::lexicographical_compare(a.val, a.val + 3, b.val, b.val + 3);
  });
  places.erase(std::unique(places.begin(), places.end()), places.end());
  return places;
}

} // namespace

float listSpacingOf(PointCloud& cloud) {
  OctreeView const tree(cloud.octree());
  cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
  std::vector<uchar> const states = flatStates(cloud.state());
  std::vector<float> distances;
  withPointAccess(points, [&](auto const& access) {
    for (cv::Vec3f const& place : sampledPlaces(points, cloud.state(), measuredCount(cloud))) {
      NearestOtherPlace nearest;
      findNearest<L2>(tree, access, place.val, nearest, [&](unsigned index) { return states[index] == 0; });
      if (nearest.worst() < std::numeric_limits<float>::max()) {
        distances.push_back(std::sqrt(nearest.worst()));
      }
    }
  });
  return medianAmong(distances);
}

} // namespace vorn::mv
