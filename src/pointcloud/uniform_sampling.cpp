// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/uniform_sampling.hpp"

#include <utility>
#include <vector>

#include "pointcloud/flat_states.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/remaining_points.hpp"

namespace vorn::mv {

void deleteDensePoints(PointCloud& cloud, float radius) {
  if (cloud.isEmpty()) {
    return;
  }
  GridOctree const& tree = cloud.octree();
  std::vector<uchar> states = flatStates(cloud.state());
  withPointAccess(std::as_const(cloud).points(), [&](auto const& points) {
    RemainingPoints<std::decay_t<decltype(points)>> remaining(tree, points, states);
    std::vector<unsigned> taken;
    for (unsigned point = 0; point < states.size(); ++point) {
      if (states[point] == 0) {
        taken.clear();
        remaining.takeBall(points[point], radius, taken);
        for (unsigned const neighbour : taken) {
          states[neighbour] = 1;
        }
        states[point] = 0;
      }
    }
  });
  storeStates(states, cloud.state());
}

} // namespace vorn::mv
