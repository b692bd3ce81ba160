// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/surface_features.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "core/parallel.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t binsEach = 11;

/// Shares a value in 0..1 between the two nearest of eleven bins, so that noise moves little.
void addTo(SurfaceFeature& feature, std::size_t part, double value, double weight) {
  double const place = std::clamp(value, 0.0, 1.0) * static_cast<double>(binsEach) - 0.5;
  double const below = std::floor(place);
  double const share = place - below;
  auto const bin = [&](double at) {
    return part * binsEach + static_cast<std::size_t>(std::clamp(at, 0.0, static_cast<double>(binsEach - 1)));
  };
  feature[bin(below)] += static_cast<float>(weight * (1.0 - share));
  feature[bin(below + 1.0)] += static_cast<float>(weight * share);
}

/// Adds how a neighbour's normal differs, in the frame of the point's normal and the way there.
void addPair(SurfaceFeature& feature, OrientedPoint const& point, OrientedPoint const& other) {
  cv::Vec3d way = other.place - point.place;
  way *= 1.0 / std::sqrt(way.dot(way));
  cv::Vec3d across = way.cross(point.normal);
  double const length = std::sqrt(across.dot(across));
  if (length < 1e-6) {
    return;
  }
  across *= 1.0 / length;
  cv::Vec3d const third = point.normal.cross(across);
  addTo(feature, 0, 0.5 * (1.0 + across.dot(other.normal)), 1.0);
  addTo(feature, 1, 0.5 * (1.0 + point.normal.dot(way)), 1.0);
  double const angle = std::atan2(third.dot(other.normal), point.normal.dot(other.normal));
  addTo(feature, 2, 0.5 + angle / (2.0 * CV_PI), 1.0);
}

void normalize(SurfaceFeature& feature) {
  for (std::size_t part = 0; part < 3; ++part) {
    float sum = 0.0F;
    for (std::size_t i = 0; i < binsEach; ++i) {
      sum += feature[part * binsEach + i];
    }
    for (std::size_t i = 0; i < binsEach && sum > 0.0F; ++i) {
      feature[part * binsEach + i] /= sum;
    }
  }
}

} // namespace

std::vector<OrientedPoint> thinned(PointCloud const& cloud, cv::Vec3d const& middle, double edge) {
  struct Keyed {
    std::array<std::int32_t, 3> cube;
    int row;
    int column;
  };
  std::vector<Keyed> keyed;
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      cv::Vec3f const& point = cloud.points()(row, column);
      cv::Vec3f const& normal = cloud.normals()(row, column);
      if (cloud.state()(row, column) == 0 && isFinite(point.val) && normal.dot(normal) > 0.5F) {
        cv::Vec3d const place = (cv::Vec3d(point) - middle) * (1.0 / edge);
        auto const cell = [&](int axis) {
          return static_cast<std::int32_t>(std::floor(std::clamp(place[axis], -1e6, 1e6)));
        };
        keyed.push_back({{cell(0), cell(1), cell(2)}, row, column});
      }
    }
  }
  std::stable_sort(keyed.begin(), keyed.end(),
                   [](Keyed const& a, Keyed const& b) { return a.cube < b.cube; });
  std::vector<OrientedPoint> points;
  for (std::size_t first = 0; first < keyed.size();) {
    std::size_t end = first;
    OrientedPoint sum;
    for (; end < keyed.size() && keyed[end].cube == keyed[first].cube; ++end) {
      sum.place += cv::Vec3d(cloud.points()(keyed[end].row, keyed[end].column));
      sum.normal += cv::Vec3d(cloud.normals()(keyed[end].row, keyed[end].column));
    }
    auto const count = static_cast<double>(end - first);
    double const length = std::sqrt(sum.normal.dot(sum.normal));
    // Where normals differ too much there is an edge, or noise, and the mean is that of nothing.
    if (length > 0.5 * count) {
      points.push_back({sum.place * (1.0 / count), sum.normal * (1.0 / length)});
    }
    first = end;
  }
  return points;
}

std::vector<SurfaceFeature> featuresOf(std::vector<OrientedPoint> const& points, double radius) {
  std::vector<std::vector<std::size_t>> neighbours(points.size());
  std::vector<SurfaceFeature> simple(points.size(), SurfaceFeature{});
  auto const count = static_cast<int>(points.size());
  parallelRows(count, [&](int firstPoint, int endPoint) {
    for (auto i = static_cast<std::size_t>(firstPoint); i < static_cast<std::size_t>(endPoint); ++i) {
      for (std::size_t j = 0; j < points.size(); ++j) {
        cv::Vec3d const way = points[j].place - points[i].place;
        if (j != i && way.dot(way) < radius * radius && way.dot(way) > 0.0) {
          neighbours[i].push_back(j);
          addPair(simple[i], points[i], points[j]);
        }
      }
      normalize(simple[i]);
    }
  });
  std::vector<SurfaceFeature> features(points.size(), SurfaceFeature{});
  parallelRows(count, [&](int firstPoint, int endPoint) {
    for (auto i = static_cast<std::size_t>(firstPoint); i < static_cast<std::size_t>(endPoint); ++i) {
      features[i] = simple[i];
      auto const share = 1.0F / static_cast<float>(std::max<std::size_t>(1, neighbours[i].size()));
      for (std::size_t const j : neighbours[i]) {
        cv::Vec3d const way = points[j].place - points[i].place;
        auto const weight = share * static_cast<float>(0.25 * radius / std::sqrt(way.dot(way)));
        for (std::size_t bin = 0; bin < features[i].size(); ++bin) {
          features[i][bin] += weight * simple[j][bin];
        }
      }
      normalize(features[i]);
    }
  });
  return features;
}

} // namespace vorn::mv
