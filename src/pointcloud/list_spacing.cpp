// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/list_spacing.hpp"

#include <algorithm>
#include <array>
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

/// The squared distance to the eighth of the nearest places but the query's own.
class EighthOtherPlace {
public:
  float worst() const { return squares_.back(); }
  void add(unsigned /*index*/, float square) {
    if (square > 0.0F && square < worst()) {
      squares_.back() = square;
      std::sort(squares_.begin(), squares_.end());
    }
  }

private:
  std::array<float, 8> squares_ = filled();
  static std::array<float, 8> filled() {
    std::array<float, 8> squares{};
    squares.fill(std::numeric_limits<float>::max());
    return squares;
  }
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

/// The median of what a set of nearest places says of a few thousand ones.
template <class Nearest>
float medianDistance(PointCloud& cloud) {
  OctreeView const tree(cloud.octree());
  cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
  std::vector<uchar> const states = flatStates(cloud.state());
  std::vector<float> distances;
  withPointAccess(points, [&](auto const& access) {
    for (cv::Vec3f const& place : sampledPlaces(points, cloud.state(), measuredCount(cloud))) {
      Nearest nearest;
      findNearest<L2>(tree, access, place.val, nearest, [&](unsigned index) { return states[index] == 0; });
      if (nearest.worst() < std::numeric_limits<float>::max()) {
        distances.push_back(std::sqrt(nearest.worst()));
      }
    }
  });
  return medianAmong(distances);
}

} // namespace

float listSpacingOf(PointCloud& cloud) {
  return medianDistance<NearestOtherPlace>(cloud);
}

float listPitchOf(PointCloud& cloud) {
  constexpr float eighth = 1.45F; // pitches: 1.41 on a grid, 1.56 where points are spread by chance
  return medianDistance<EighthOtherPlace>(cloud) / eighth;
}

} // namespace vorn::mv
