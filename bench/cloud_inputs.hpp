// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <opencv2/core/mat.hpp>
#include <random>
#include <utility>
#include <vector>

/// Clouds of the sizes and kinds that point cloud operations are measured on. Lengths are in millimetres.
namespace vorn::bench {

/// Distance of neighbouring points of the clouds on surfaces.
constexpr float pitch = 0.1F;

/// A square organized scan: a wavy surface with noise, a depth step, islands, and one point in a hundred off
/// the surface.
inline cv::Mat_<cv::Vec3f> organizedScan(int side) {
  std::mt19937 random(1);
  std::normal_distribution<float> noise(0.0F, 0.01F);
  std::uniform_real_distribution<float> chance(0.0F, 1.0F);
  cv::Mat_<cv::Vec3f> points(side, side);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      float const x = pitch * static_cast<float>(column);
      float const y = pitch * static_cast<float>(row);
      float z = 500.0F + 3.0F * std::sin(0.2F * x) * std::cos(0.15F * y) + (column > side / 2 ? 20.0F : 0.0F);
      // Islands of 6 x 6 points, two millimetres above the surface.
      z += column % 100 < 6 && row % 100 < 6 ? 2.0F : 0.0F;
      z += chance(random) < 0.01F ? 40.0F * (chance(random) - 0.5F) : 0.0F;
      points(row, column) = {x + noise(random), y + noise(random), z + noise(random)};
    }
  }
  return points;
}

/// Points spread evenly over a cube, one a pitch cubed, in random order.
inline cv::Mat_<cv::Vec3f> randomCube(int side) {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> coordinate(0.0F, pitch * std::cbrt(static_cast<float>(side * side)));
  cv::Mat_<cv::Vec3f> points(side, side);
  for (cv::Vec3f& point : points) {
    point = {coordinate(random), coordinate(random), coordinate(random)};
  }
  return points;
}

/// Points spread evenly over a sphere, one a pitch squared, in random order.
inline cv::Mat_<cv::Vec3f> sphericalShell(int side) {
  std::mt19937 random(1);
  std::normal_distribution<float> normal;
  float const radius = pitch * static_cast<float>(side) / std::sqrt(4.0F * 3.14159265F);
  cv::Mat_<cv::Vec3f> points(side, side);
  for (cv::Vec3f& point : points) {
    cv::Vec3f const direction(normal(random), normal(random), normal(random));
    point = direction * (radius / std::sqrt(direction.dot(direction)));
  }
  return points;
}

/// The cloud of a kind: 0 organized, 1 cube, 2 sphere.
inline cv::Mat_<cv::Vec3f> cloudOfKind(long kind, long side) {
  auto const length = static_cast<int>(side);
  return kind == 0 ? organizedScan(length) : (kind == 1 ? randomCube(length) : sphericalShell(length));
}

inline char const* nameOfKind(long kind) {
  return kind == 0 ? "organized" : (kind == 1 ? "cube" : "sphere");
}

/// The radius around a point that holds about `count` points.
inline float radiusForNeighbours(long kind, long count) {
  auto const number = static_cast<float>(count);
  return kind == 1 ? pitch * std::cbrt(number * 3.0F / (4.0F * 3.14159265F))
                   : pitch * std::sqrt(number / 3.14159265F);
}

/// Places of query points in a cloud of `total` points: two thousand runs of ten consecutive points, spread
/// over it.
inline std::vector<int> queryIndices(std::size_t total) {
  constexpr std::size_t runs = 2000;
  constexpr std::size_t length = 10;
  // Prime, so that the runs start in all columns of a grid.
  constexpr std::size_t stride = 104729;
  std::vector<int> indices;
  for (std::size_t run = 0; run < runs; ++run) {
    for (std::size_t i = 0; i < length; ++i) {
      indices.push_back(static_cast<int>((run * stride + i) % total));
    }
  }
  return indices;
}

} // namespace vorn::bench
