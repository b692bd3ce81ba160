// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/mat.hpp>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "support/seed.hpp"

namespace vorn::test {

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

struct NamedPoints {
  std::string name;
  std::vector<cv::Vec3f> points;
};

inline void PrintTo(NamedPoints const& set, std::ostream* stream) {
  *stream << set.name;
}

inline std::vector<cv::Vec3f> randomPoints(int count, float low, float high) {
  std::mt19937 random(seed());
  std::uniform_real_distribution<float> coordinate(low, high);
  std::vector<cv::Vec3f> points;
  for (int i = 0; i < count; ++i) {
    points.emplace_back(coordinate(random), coordinate(random), coordinate(random));
  }
  return points;
}

/// Points with integer coordinates: many at the same place, on centre planes, and at exact distances.
inline std::vector<cv::Vec3f> latticePoints(int count, int side) {
  std::vector<cv::Vec3f> points = randomPoints(count, 0.0F, static_cast<float>(side));
  for (cv::Vec3f& point : points) {
    point = {std::floor(point[0]), std::floor(point[1]), std::floor(point[2])};
  }
  return points;
}

/// Sets of finite points of the kinds that break spatial indexes.
inline std::vector<NamedPoints> difficultPointSets() {
  std::vector<cv::Vec3f> const cube = randomPoints(3000, -1.0F, 1.0F);
  std::vector<NamedPoints> sets{{"cube", cube}, {"lattice", latticePoints(1000, 6)}};
  sets.push_back({"few", std::vector<cv::Vec3f>(cube.begin(), cube.begin() + 32)});
  sets.push_back({"one", {cube.front()}});
  sets.push_back({"identical", std::vector<cv::Vec3f>(500, cv::Vec3f(1.5F, -2.0F, 700.0F))});
  sets.push_back({"two heaps", std::vector<cv::Vec3f>(500, cv::Vec3f(0.0F, 0.0F, 0.0F))});
  sets.back().points.resize(1000, cv::Vec3f(3.0F, 1.0F, 0.3F));
  // Half of the smallest float is zero.
  sets.push_back({"denormal", std::vector<cv::Vec3f>(100, cv::Vec3f(0.0F, 0.0F, 0.0F))});
  sets.back().points.resize(200, cv::Vec3f(std::numeric_limits<float>::denorm_min(), 0.0F, 0.0F));
  NamedPoints line{"line", cube}, plane{"plane", cube}, offset{"huge offset", cube}, far{"far outlier", cube};
  for (std::size_t i = 0; i < cube.size(); ++i) {
    line.points[i] = cube[i][0] * cv::Vec3f(1.0F, 2.0F, 0.5F);
    plane.points[i][2] = 0.25F;
    // The unit in the last place is 1/8 here, so that many points fall together and cubes stop halving.
    offset.points[i] += cv::Vec3f(1e6F, -1.5e6F, 1.9e6F);
  }
  far.points.emplace_back(1e9F, 1e9F, -1e9F);
  sets.insert(sets.end(), {line, plane, offset, far});
  return sets;
}

inline cv::Mat_<cv::Vec3f> asGrid(std::vector<cv::Vec3f> const& points, int columns) {
  cv::Mat_<cv::Vec3f> grid(static_cast<int>(points.size()) / columns, columns);
  std::copy_n(points.begin(), grid.total(), grid.begin());
  return grid;
}

} // namespace vorn::test
