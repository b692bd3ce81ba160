// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/uniform_sampling.hpp"

#include <type_traits>
#include <utility>
#include <vector>

#include "core/pieces.hpp"
#include "pointcloud/flat_states.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/remaining_points.hpp"

namespace vorn::mv {

void deleteDensePoints(PointCloud& cloud, float radius, Observer* observer) {
  if (cloud.isEmpty()) {
    return;
  }
  Progress const progress(observer);
  PartObserver treeObserver(progress.part(0.0, 0.5));
  GridOctree const& tree = cloud.octree(treeObserver.ifWatched());
  std::vector<uchar> const before = flatStates(cloud.state());
  std::vector<uchar> isDense(before.size());
  withPointAccess(std::as_const(cloud).points(), [&](auto const& points) {
    using Points = std::decay_t<decltype(points)>;
    RemainingPoints<Points> remaining(tree, points, before, progress.part(0.5, 0.6));
    std::vector<unsigned> taken;
    constexpr std::size_t pointsAtOnce = std::size_t{1} << 14;
    inPieces(before.size(), pointsAtOnce, progress.part(0.6, 1.0), "thinning",
             [&](std::size_t first, std::size_t end) {
               for (std::size_t point = first; point < end; ++point) {
                 if (before[point] == 0 && isDense[point] == 0) {
                   taken.clear();
                   remaining.takeBall(points[point], radius, taken);
                   for (unsigned const neighbour : taken) {
                     isDense[neighbour] = 1;
                   }
                   isDense[point] = 0;
                 }
               }
             });
  });
  deleteMarked(cloud, isDense);
}

} // namespace vorn::mv
