// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/sight_map.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/median.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

SightMap::SightMap(cv::Mat_<cv::Vec3f> const& points, cv::Matx44d const& viewFromPoints, double spacing,
                   double margin)
    : rotation_(viewFromPoints.get_minor<3, 3>(0, 0)),
      translation_(viewFromPoints(0, 3), viewFromPoints(1, 3), viewFromPoints(2, 3)), margin_(margin) {
  double right = std::numeric_limits<double>::lowest();
  double bottom = right;
  left_ = top_ = std::numeric_limits<double>::max();
  std::vector<float> depths;
  std::size_t count = 0;
  std::vector<cv::Vec3d> sights; // across, down, and the depth
  sights.reserve(points.total());
  for (cv::Vec3f const& point : points) {
    cv::Vec3d const seen = inView(point);
    if (!(seen[2] > 0.0)) {
      continue;
    }
    sights.emplace_back(seen[0] / seen[2], seen[1] / seen[2], seen[2]);
    left_ = std::min(left_, sights.back()[0]);
    right = std::max(right, sights.back()[0]);
    top_ = std::min(top_, sights.back()[1]);
    bottom = std::max(bottom, sights.back()[1]);
    constexpr std::size_t stride = 16;
    if (count++ % stride == 0) {
      depths.push_back(static_cast<float>(seen[2]));
    }
  }
  if (count == 0) {
    return;
  }
  constexpr double coarser = 1.5;
  double step = coarser * spacing / static_cast<double>(medianAmong(depths));
  constexpr double mostCells = 4.0; // a point
  double const wanted = ((right - left_) / step + 1.0) * ((bottom - top_) / step + 1.0);
  step *= std::max(1.0, std::sqrt(wanted / (mostCells * static_cast<double>(count) + 1.0)));
  cellsPerUnit_ = 1.0 / step;
  cv::Size const size(static_cast<int>((right - left_) * cellsPerUnit_) + 1,
                      static_cast<int>((bottom - top_) * cellsPerUnit_) + 1);
  constexpr float none = std::numeric_limits<float>::max();
  cv::Mat_<float> depth(size, none);
  for (cv::Vec3d const& seen : sights) {
    float& cell = depth(static_cast<int>((seen[1] - top_) * cellsPerUnit_),
                        static_cast<int>((seen[0] - left_) * cellsPerUnit_));
    cell = std::min(cell, static_cast<float>(seen[2]));
  }
  cv::Mat const around = cv::Mat::ones(3, 3, CV_8U);
  cv::erode(depth, least_, around);
  cv::Mat_<float> filled = depth.clone();
  filled.setTo(0.0F, depth == none);
  cv::dilate(filled, farthest_, around);
  cv::erode(filled, nearest_, around);
}

cv::Vec3d SightMap::inView(cv::Vec3f const& point) const {
  return rotation_ * cv::Vec3d(point) + translation_;
}

Sight SightMap::of(cv::Vec3f const& point) const {
  cv::Vec3d const seen = inView(point);
  if (!(seen[2] > 0.0) || nearest_.empty()) {
    return Sight::Unknown;
  }
  double const x = (seen[0] / seen[2] - left_) * cellsPerUnit_;
  double const y = (seen[1] / seen[2] - top_) * cellsPerUnit_;
  if (!(x >= 0.0 && y >= 0.0 && x < nearest_.cols && y < nearest_.rows)) {
    return Sight::Unknown;
  }
  int const row = static_cast<int>(y);
  int const column = static_cast<int>(x);
  if (seen[2] < static_cast<double>(nearest_(row, column)) - margin_) {
    return Sight::SeenThrough;
  }
  if (farthest_(row, column) == 0.0F) {
    return Sight::Nothing;
  }
  return seen[2] >= static_cast<double>(least_(row, column)) - margin_ &&
                 seen[2] <= static_cast<double>(farthest_(row, column)) + margin_
             ? Sight::Seen
             : Sight::Unknown;
}

} // namespace vorn::mv
