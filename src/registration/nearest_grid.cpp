// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/nearest_grid.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorn::mv {

namespace {

constexpr int reach = 2;
/// So that a far, thin part does not take all memory: cubes then are larger.
constexpr double mostCubes = 2e7;

} // namespace

NearestGrid::NearestGrid(std::vector<OrientedPoint> const& points, double edge)
    : points_(points), edge_(edge) {
  cv::Vec3d high = cv::Vec3d::all(std::numeric_limits<double>::lowest());
  low_ = -high;
  for (OrientedPoint const& point : points) {
    for (int axis = 0; axis < 3; ++axis) {
      low_[axis] = std::min(low_[axis], point.place[axis]);
      high[axis] = std::max(high[axis], point.place[axis]);
    }
  }
  for (;; edge_ *= 1.25) {
    double cubes = 1.0;
    for (int axis = 0; axis < 3; ++axis) {
      double const cells = std::floor((high[axis] - low_[axis]) / edge_) + 1.0 + 2.0 * reach;
      cubes *= cells;
      size_[axis] = static_cast<int>(std::min(cells, mostCubes));
    }
    if (cubes <= mostCubes) {
      break;
    }
  }
  low_ -= cv::Vec3d::all(reach * edge_);
  auto const count = static_cast<std::size_t>(size_[0]) * static_cast<std::size_t>(size_[1]) *
                     static_cast<std::size_t>(size_[2]);
  nearest_.assign(count, -1);
  std::vector<float> squares(count, std::numeric_limits<float>::max());
  for (std::size_t i = 0; i < points.size(); ++i) {
    cv::Vec3d const at = (points[i].place - low_) * (1.0 / edge_);
    cv::Vec3i const cell(static_cast<int>(at[0]), static_cast<int>(at[1]), static_cast<int>(at[2]));
    for (int x = cell[0] - reach; x <= cell[0] + reach; ++x) {
      for (int y = cell[1] - reach; y <= cell[1] + reach; ++y) {
        for (int z = cell[2] - reach; z <= cell[2] + reach; ++z) {
          cv::Vec3d const way = cv::Vec3d(x + 0.5, y + 0.5, z + 0.5) - at;
          auto const square = static_cast<float>(way.dot(way));
          bool const isInside = x >= 0 && y >= 0 && z >= 0 && x < size_[0] && y < size_[1] && z < size_[2];
          std::size_t const cube = isInside
                                       ? (static_cast<std::size_t>(x) * static_cast<std::size_t>(size_[1]) +
                                          static_cast<std::size_t>(y)) *
                                                 static_cast<std::size_t>(size_[2]) +
                                             static_cast<std::size_t>(z)
                                       : 0;
          if (isInside && square < squares[cube]) {
            squares[cube] = square;
            nearest_[cube] = static_cast<std::int32_t>(i);
          }
        }
      }
    }
  }
}

OrientedPoint const* NearestGrid::near(cv::Vec3d const& place) const {
  cv::Vec3d const at = (place - low_) * (1.0 / edge_);
  std::size_t cube = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (!(at[axis] >= 0.0 && at[axis] < size_[axis])) {
      return nullptr;
    }
    cube = cube * static_cast<std::size_t>(size_[axis]) + static_cast<std::size_t>(at[axis]);
  }
  std::int32_t const found = nearest_[cube];
  return found < 0 ? nullptr : &points_[static_cast<std::size_t>(found)];
}

} // namespace vorn::mv
