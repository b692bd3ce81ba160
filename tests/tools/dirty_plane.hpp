// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::tools {

inline constexpr int rows = 20;
inline constexpr int columns = 30;
inline constexpr std::size_t planeCount = rows * columns;
inline constexpr std::size_t highCount = 5;
inline constexpr std::size_t strayCount = 3;
inline constexpr std::size_t islandCount = 12;

/// A plane of points one apart at z = 500.
inline std::vector<cv::Vec3f> plane() {
  std::vector<cv::Vec3f> points;
  for (std::size_t i = 0; i < planeCount; ++i) {
    points.emplace_back(static_cast<float>(i % columns), static_cast<float>(i / columns), 500.0F);
  }
  return points;
}

/// The plane, with points alone above z = 700 and below, and an island of points one apart.
inline graphic::GraphicObject dirtyPlane() {
  graphic::GraphicObject object;
  object.vertices() = plane();
  for (std::size_t i = 0; i < highCount; ++i) {
    object.vertices().emplace_back(10.0F * static_cast<float>(i), 5.0F, 900.0F);
  }
  for (std::size_t i = 0; i < strayCount; ++i) {
    object.vertices().emplace_back(10.0F * static_cast<float>(i), 5.0F, 520.0F);
  }
  for (std::size_t i = 0; i < islandCount; ++i) {
    object.vertices().emplace_back(100.0F + static_cast<float>(i % 4), static_cast<float>(i / 4), 500.0F);
  }
  return object;
}

} // namespace vorn::tools
