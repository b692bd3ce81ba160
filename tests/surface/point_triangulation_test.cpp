// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/point_triangulation.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/mv/surface/mesh.hpp>

#include "support/seed.hpp"
#include "surface/mesh_gaps.hpp"

namespace vorn::mv {
namespace {

/// Points of the unit square no nearer than `least` to each other, as many as fit.
std::vector<cv::Vec3f> scattered(float least) {
  std::mt19937 random(test::seed());
  std::uniform_real_distribution<float> coordinate(0.0F, 1.0F);
  std::vector<cv::Vec3f> points;
  for (int i = 0; i < 20000; ++i) {
    cv::Vec3f const point(coordinate(random), coordinate(random), 5.0F);
    bool const isFree = std::all_of(points.begin(), points.end(),
                                    [&](cv::Vec3f const& other) { return cv::norm(other - point) >= least; });
    if (isFree) {
      points.push_back(point);
    }
  }
  return points;
}

TEST(TriangulatedPoints, OfAPlaneLeaveNoPointInATrianglesCircle) {
  std::vector<cv::Vec3f> const points = scattered(0.04F);
  std::vector<cv::Vec3f> const normals(points.size(), cv::Vec3f(0, 0, 1));
  std::vector<cv::Vec3i> const triangles = triangulatedPoints(points, normals, 0.15F);
  double area = 0.0;
  for (cv::Vec3i const& triangle : triangles) {
    cv::Vec3d const a(points[static_cast<std::size_t>(triangle[0])]);
    cv::Vec3d const b(points[static_cast<std::size_t>(triangle[1])]);
    cv::Vec3d const c(points[static_cast<std::size_t>(triangle[2])]);
    area += 0.5 * (b - a).cross(c - a)[2];
    for (cv::Vec3f const& point : points) {
      cv::Vec3d const d(point);
      auto const row = [&](cv::Vec3d const& p) {
        cv::Vec3d const o = p - d;
        return cv::Vec3d(o[0], o[1], o[0] * o[0] + o[1] * o[1]);
      };
      // The in-circle determinant; above 0 inside of a counterclockwise triangle. Near 0 either side is
      // right.
      ASSERT_LT(row(a).dot(row(b).cross(row(c))), 1e-6);
    }
  }
  EXPECT_GT(area, 0.9);
  EXPECT_LT(area, 1.0);
}

TEST(TriangulatedPoints, OfABallAreClosed) {
  // Along a spiral, evenly dense (R. Swinbank and R. J. Purser, "Fibonacci grids", 2006).
  constexpr int count = 3000;
  SurfaceMesh mesh;
  for (int i = 0; i < count; ++i) {
    double const z = 1.0 - (2.0 * i + 1.0) / count;
    double const angle = i * CV_PI * (3.0 - std::sqrt(5.0));
    double const radius = std::sqrt(1.0 - z * z);
    mesh.normals.emplace_back(cv::Vec3d(radius * std::cos(angle), radius * std::sin(angle), z));
    mesh.vertices.push_back(mesh.normals.back() * 20.0F);
  }
  mesh.triangles = triangulatedPoints(mesh.vertices, mesh.normals, 3.0F);
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_EQ(mesh.triangles.size(), 2U * count - 4) << "Euler";
  EXPECT_TRUE(figures.boundaries.empty());
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_NEAR(figures.volume, 4.0 / 3.0 * CV_PI * 8000.0, 0.005 * 33510.0);
}

TEST(TriangulatedPoints, KeepTheSidesOfASheetApart) {
  SurfaceMesh mesh;
  for (int side : {-1, 1}) {
    for (int i = 0; i < 400; ++i) {
      mesh.vertices.emplace_back(i % 20, i / 20, 0.3 * side);
      mesh.normals.emplace_back(0, 0, side);
    }
  }
  mesh.triangles = triangulatedPoints(mesh.vertices, mesh.normals, 3.0F);
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_EQ(figures.pieces, 2U);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_NEAR(figures.area, 2.0 * 19.0 * 19.0, 1e-3);
}

TEST(MeshGaps, AreFilledUpToTheLimitAndMeetInAVertex) {
  // A sheet of 6 x 6 cells with two holes of one cell each that touch in a corner.
  std::vector<cv::Vec3f> vertices;
  for (int i = 0; i < 49; ++i) {
    vertices.emplace_back(i % 7, i / 7, 0);
  }
  std::vector<cv::Vec3f> const normals(vertices.size(), cv::Vec3f(0, 0, 1));
  SurfaceMesh mesh;
  mesh.vertices = vertices;
  for (int i = 0; i < 36; ++i) {
    int const a = i / 6 * 7 + i % 6;
    if (i != 2 * 6 + 2 && i != 3 * 6 + 3) {
      mesh.triangles.emplace_back(a, a + 1, a + 8);
      mesh.triangles.emplace_back(a, a + 8, a + 7);
    }
  }
  GapLimits limits;
  limits.maxLength = 3.9;
  fillGaps(vertices, normals, mesh.triangles, limits);
  EXPECT_EQ(mesh.triangles.size(), 68U) << "each rim has a length of 4";
  limits.maxLength = 4.1;
  fillGaps(vertices, normals, mesh.triangles, limits);
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_EQ(mesh.triangles.size(), 72U);
  EXPECT_EQ(figures.boundaries.size(), 1U);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_NEAR(figures.area, 36.0, 1e-6);
}

} // namespace
} // namespace vorn::mv
