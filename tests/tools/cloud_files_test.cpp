// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "tools/files/cloud_files.hpp"

namespace vorn::tools {
namespace {

/// A grid of points as a camera sees a level surface, `spacing` apart; the last column lies `step` deeper.
cv::Mat_<cv::Vec3f> gridWithStep(float spacing, float step) {
  cv::Mat_<cv::Vec3f> xyz(4, 5);
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      float const depth = x + 1 == xyz.cols ? 500.0F + step : 500.0F;
      xyz(y, x) = cv::Vec3f(spacing * static_cast<float>(x), spacing * static_cast<float>(y), depth);
    }
  }
  return xyz;
}

graphic::GraphicObject surfaceOf(cv::Mat_<cv::Vec3f> const& xyz, float maxEdge) {
  graphic::GraphicObject object;
  object.vertices().assign(xyz.begin(), xyz.end());
  addGridTriangles(object, xyz, cv::Mat_<uchar>(xyz.size(), uchar{1}), maxEdge);
  return object;
}

TEST(GridTriangles, EndAtEdgesThatAreTooLong) {
  // Across the step an edge is sqrt(2^2 + 4.5^2) = 4.92 long, a diagonal sqrt(2 * 2^2 + 4.5^2) = 5.32.
  cv::Mat_<cv::Vec3f> const xyz = gridWithStep(2.0F, 4.5F);
  constexpr std::size_t level = 3 * 3 * 2;
  EXPECT_EQ(surfaceOf(xyz, 5.33F).triangles().size(), level + 3 * 2);
  // Every triangle across the step has a diagonal.
  EXPECT_EQ(surfaceOf(xyz, 5.31F).triangles().size(), level);
  EXPECT_EQ(surfaceOf(xyz, 2.8F).triangles().size(), 0U) << "the diagonals of the level part are 2.83 long";
}

TEST(GridTriangles, AllFaceTheCamera) {
  graphic::GraphicObject const surface = surfaceOf(gridWithStep(1.0F, 0.5F), 10.0F);
  ASSERT_FALSE(surface.triangles().empty());
  for (cv::Vec3i const& corners : surface.triangles()) {
    auto const at = [&](int i) { return surface.vertices()[static_cast<std::size_t>(corners[i])]; };
    cv::Vec3f const normal = (at(1) - at(0)).cross(at(2) - at(0));
    EXPECT_LT(normal.dot(at(0)), 0.0F) << "counter-clockwise as the camera sees it";
  }
}

} // namespace
} // namespace vorn::tools
