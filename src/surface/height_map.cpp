// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/height_map.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <vector>
#include <vorn/mv/measure/fit.hpp>

#include "core/error.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/smallest_axis.hpp"
#include "surface/even_spacing.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "heightMapOf";
constexpr double mostCells = 268435456.0;

struct Points {
  std::vector<cv::Vec3d> places;
  std::vector<double> weights; ///< for `HeightRule::Weighted`
};

Points presentPoints(PointCloud const& cloud, HeightRule rule) {
  auto const sigmas = cloud.fields().find("sigma");
  if (rule == HeightRule::Weighted && sigmas == cloud.fields().end()) {
    throw error("The cloud has no field sigma to weight heights with", function);
  }
  Points points;
  auto const most = static_cast<std::size_t>(cloud.presentCount());
  points.places.reserve(most);
  points.weights.reserve(rule == HeightRule::Weighted ? most : 0);
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      cv::Vec3f const& point = cloud.points()(row, column);
      if (cloud.state()(row, column) != 0 || !isFinite(point.val)) {
        continue;
      }
      points.places.emplace_back(point);
      if (rule == HeightRule::Weighted) {
        auto const sigma = static_cast<double>(sigmas->second(row, column));
        if (!(sigma > 0.0) || !std::isfinite(sigma)) {
          throw error("sigma is " + std::to_string(sigma) + " at row " + std::to_string(row) + ", column " +
                          std::to_string(column),
                      function);
        }
        points.weights.push_back(1.0 / (sigma * sigma));
      }
    }
  }
  constexpr std::size_t fewest = 3;
  if (points.places.size() < fewest) {
    throw error("The cloud has " + std::to_string(points.places.size()) + " points, fewer than 3", function);
  }
  return points;
}

bool lieOnLine(std::vector<cv::Vec3d> const& points) {
  cv::Vec3d middle;
  for (cv::Vec3d const& point : points) {
    middle += point;
  }
  middle *= 1.0 / static_cast<double>(points.size());
  double products[6] = {};
  for (cv::Vec3d const& point : points) {
    cv::Vec3d const offset = point - middle;
    int next = 0;
    for (int i = 0; i < 3; ++i) {
      for (int j = i; j < 3; ++j) {
        products[next++] += offset[i] * offset[j];
      }
    }
  }
  return smallestAxisOf(products).direction == cv::Vec3d();
}

Plane3f planeOf(PointCloud const& cloud, std::vector<cv::Vec3d> const& points) {
  try {
    return fitPlane(cloud).feature;
  } catch (Exception const&) {
    if (lieOnLine(points)) {
      throw error("The points lie on a line: no plane fits them best", function);
    }
    throw;
  }
}

/// A frame whose z axis is the normal and whose x axis is as near the cloud's as can be.
cv::Matx44d frameOf(cv::Vec3d const& origin, cv::Vec3d const& normal) {
  cv::Vec3d const z = normal * (1.0 / std::sqrt(normal.dot(normal)));
  constexpr double almostAlong = 0.99;
  cv::Vec3d const like = std::abs(z[0]) < almostAlong ? cv::Vec3d(1.0, 0.0, 0.0) : cv::Vec3d(0.0, 1.0, 0.0);
  cv::Vec3d x = like - z * z.dot(like);
  x *= 1.0 / std::sqrt(x.dot(x));
  cv::Vec3d const y = z.cross(x);
  cv::Matx44d frame = cv::Matx44d::eye();
  cv::Vec3d const axes[] = {x, y, z};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      frame(i, j) = axes[i][j];
    }
    frame(i, 3) = -axes[i].dot(origin);
  }
  return frame;
}

struct Extent {
  double low[2];
  double high[2];
};

Extent extentOf(std::vector<cv::Vec3d> const& points) {
  constexpr double huge = std::numeric_limits<double>::max();
  Extent extent{{huge, huge}, {-huge, -huge}};
  for (cv::Vec3d const& point : points) {
    for (int axis = 0; axis < 2; ++axis) {
      extent.low[axis] = std::min(extent.low[axis], point[axis]);
      extent.high[axis] = std::max(extent.high[axis], point[axis]);
    }
  }
  return extent;
}

double checkedCellSize(double size, Extent const& extent) {
  double const width = extent.high[0] - extent.low[0];
  double const height = extent.high[1] - extent.low[1];
  if (!(size > 0.0) || !((width / size + 1.0) * (height / size + 1.0) <= mostCells)) {
    throw error(
        "A cell size of " + std::to_string(size) + " over " + std::to_string(width) + " x " +
            std::to_string(height) +
            " is no grid of at most 2^28 cells: give a larger one, or remove points far from all others",
        function);
  }
  return size;
}

/// The height of the points [first, end) of one cell, which are sorted by height.
double heightOf(Points const& points, std::vector<unsigned> const& order, std::size_t first, std::size_t end,
                HeightRule rule) {
  auto const at = [&](std::size_t i) { return points.places[order[i]][2]; };
  if (rule == HeightRule::Top) {
    return at(end - 1);
  }
  if (rule == HeightRule::Median) {
    return (at((first + end - 1) / 2) + at((first + end) / 2)) / 2.0;
  }
  double sum = 0.0;
  double weights = 0.0;
  for (std::size_t i = first; i < end; ++i) {
    double const weight = rule == HeightRule::Weighted ? points.weights[order[i]] : 1.0;
    sum += weight * at(i);
    weights += weight;
  }
  return sum / weights;
}

} // namespace

HeightMap heightMapOf(PointCloud const& cloud, HeightMapSettings const& settings) {
  cloud.checkSizes();
  Points points = presentPoints(cloud, settings.rule);
  Plane3f const plane = settings.plane.has_value() ? *settings.plane : planeOf(cloud, points.places);
  cv::Vec3d const normal(plane.normal());
  if (!(normal.dot(normal) > 0.0)) {
    throw error("The plane has no normal", function);
  }
  HeightMap map;
  map.mapFromCloud = frameOf({plane.point().x, plane.point().y, plane.point().z}, normal);
  for (cv::Vec3d& point : points.places) {
    cv::Vec4d const moved = map.mapFromCloud * cv::Vec4d(point[0], point[1], point[2], 1.0);
    point = {moved[0], moved[1], moved[2]};
  }
  Extent const extent = extentOf(points.places);
  bool const isGiven = settings.cellSize != 0.0;
  map.cellSize = checkedCellSize(isGiven ? settings.cellSize : evenSpacingOf(points.places), extent);
  map.mapFromCloud(0, 3) -= extent.low[0];
  map.mapFromCloud(1, 3) -= extent.low[1];
  auto const cellOf = [&](double value, int axis) {
    return static_cast<int>(std::lround((value - extent.low[axis]) / map.cellSize));
  };
  int const columns = cellOf(extent.high[0], 0) + 1;
  int const rows = cellOf(extent.high[1], 1) + 1;
  map.heights = cv::Mat_<float>(rows, columns, std::numeric_limits<float>::quiet_NaN());
  map.counts = cv::Mat_<int>(rows, columns, 0);
  std::vector<int> cells;
  std::vector<unsigned> order;
  cells.reserve(points.places.size());
  order.reserve(points.places.size());
  for (cv::Vec3d const& point : points.places) {
    cells.push_back(cellOf(point[1], 1) * columns + cellOf(point[0], 0));
    order.push_back(static_cast<unsigned>(order.size()));
  }
  std::sort(order.begin(), order.end(), [&](unsigned a, unsigned b) {
    if (cells[a] != cells[b]) {
      return cells[a] < cells[b];
    }
    return points.places[a][2] != points.places[b][2] ? points.places[a][2] < points.places[b][2] : a < b;
  });
  std::size_t covered = 0;
  for (std::size_t first = 0; first < order.size();) {
    int const cell = cells[order[first]];
    std::size_t end = first;
    while (end < order.size() && cells[order[end]] == cell) {
      ++end;
    }
    map.heights(cell / columns, cell % columns) =
        static_cast<float>(heightOf(points, order, first, end, settings.rule));
    map.counts(cell / columns, cell % columns) = static_cast<int>(end - first);
    ++covered;
    first = end;
  }
  map.coverage = static_cast<double>(covered) / static_cast<double>(map.heights.total());
  return map;
}

PointCloud cloudOf(HeightMap const& map) {
  if (!(map.cellSize > 0.0)) {
    throw error("The cell size is " + std::to_string(map.cellSize) + ", not above 0", "cloudOf");
  }
  cv::Matx44d const cloudFromMap = map.mapFromCloud.inv();
  cv::Mat_<cv::Vec3f> points(map.heights.size());
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      auto const height = static_cast<double>(map.heights(row, column));
      cv::Vec4d const moved =
          cloudFromMap * cv::Vec4d(column * map.cellSize, row * map.cellSize, height, 1.0);
      points(row, column) = cv::Vec3f(cv::Vec3d(moved[0], moved[1], moved[2]));
    }
  }
  return PointCloud(points, true);
}

} // namespace vorn::mv
