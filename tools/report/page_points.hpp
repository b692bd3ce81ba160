// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <opencv2/core/matx.hpp>

/// The order in which a page keeps the points of a cloud, and which of them it shows.
namespace vorn::tools {

/// Of a point among those of a cloud.
using Index = std::uint32_t;

inline bool isFinite(cv::Vec3f const& p) {
  return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

struct Box {
  cv::Vec3d low = cv::Vec3d::all(std::numeric_limits<double>::max());
  cv::Vec3d high = cv::Vec3d::all(std::numeric_limits<double>::lowest());

  void take(cv::Vec3f const& p) {
    for (int i = 0; i < 3; ++i) {
      low[i] = std::min(low[i], static_cast<double>(p[i]));
      high[i] = std::max(high[i], static_cast<double>(p[i]));
    }
  }
};

/// A point's place along a curve that visits every cell of an octree before the next one (Morton's order).
struct Place {
  std::uint64_t key;
  Index point;

  bool operator<(Place const& other) const {
    return key < other.key || (key == other.key && point < other.point);
  }
};

/// The places of the finite points, in order.
std::vector<Place> inOrder(std::vector<cv::Vec3f> const& points);

/// The usual distance from a point to the nearest other one, from a sample; among those that the order keeps
/// near. 0 where all lie in one place.
double spacingOf(std::vector<Place> const& places, std::vector<cv::Vec3f> const& points);

/// What of a cloud is shown, in its order, and where every point went.
struct Selection {
  std::vector<Index> points;
  std::vector<Index> slots; ///< for a mesh: by point, the place among the points shown
};

/// At most `most` points, evenly along the order.
Selection everySoMany(std::vector<Place> const& places, std::size_t most);

/// Of each cell of the finest octree with at most `most` of them that hold points, the middle one; all where
/// there are no more.
/// @param pointCount of the cloud, those that are not finite too
Selection onePerCell(std::vector<Place> const& places, std::size_t most, std::size_t pointCount);

} // namespace vorn::tools
