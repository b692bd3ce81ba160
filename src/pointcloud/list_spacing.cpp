// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/list_spacing.hpp"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "core/median.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

float listSpacingOf(PointCloud& cloud) {
  constexpr std::size_t sampled = 4000;
  std::size_t const count = cloud.pointCount();
  std::size_t const stride = std::max<std::size_t>(1, count / sampled);
  GridOctree const& tree = cloud.octree();
  cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
  std::vector<float> distances;
  std::vector<unsigned> found;
  std::vector<float> squares;
  for (std::size_t i = 0; i < count; i += stride) {
    int const row = static_cast<int>(i) / points.cols;
    int const column = static_cast<int>(i) % points.cols;
    if (cloud.state()(row, column) != 0 || !isFinite(points(row, column).val)) {
      continue;
    }
    tree.knnSearch<Distance<cv::Vec3f>::L2>(points(row, column), 2, found, squares);
    if (squares.size() == 2 && squares[1] > 0.0F) {
      distances.push_back(std::sqrt(squares[1]));
    }
  }
  return medianAmong(distances);
}

} // namespace vorn::mv
