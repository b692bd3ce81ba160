// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/sample_mesh.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>

#include <gtest/gtest.h>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

/// A large face, a needle and a small triangle, apart from each other; and one without area.
SurfaceMesh threeTriangles() {
  SurfaceMesh mesh;
  mesh.vertices = {{0, 0, 0},      {10, 0, 0}, {0, 8, 0},     {20, 0, 0},      {20, 12, 0},
                   {20, 6, 0.05F}, {30, 0, 0}, {30, 0.1F, 0}, {30.1F, 0, 0.1F}};
  mesh.triangles = {{0, 1, 2}, {3, 4, 5}, {6, 7, 8}, {0, 0, 1}};
  return mesh;
}

TEST(SampleMesh, LeavesNoPlaceOfATriangleFarFromAPoint) {
  SurfaceMesh const mesh = threeTriangles();
  constexpr double longest = 0.5;
  PointCloud const cloud = sampleMesh(mesh, longest);
  cv::Mat_<cv::Vec3f> const points = cloud.points();
  cv::Mat_<cv::Vec3f> const normals = cloud.normals();
  ASSERT_EQ(points.size(), normals.size());
  EXPECT_FALSE(cloud.isOrganized());
  std::mt19937 random(4);
  std::uniform_real_distribution<double> uniform;
  for (int t = 0; t < 3; ++t) {
    auto const corner = [&](int i) {
      return cv::Vec3d(
          mesh.vertices[static_cast<std::size_t>(mesh.triangles[static_cast<std::size_t>(t)][i])]);
    };
    cv::Vec3d const normal = cv::normalize((corner(1) - corner(0)).cross(corner(2) - corner(0)));
    double worst = 0;
    for (int i = 0; i < 500; ++i) {
      double a = uniform(random);
      double b = uniform(random);
      if (a + b > 1) {
        a = 1 - a;
        b = 1 - b;
      }
      cv::Vec3d const place = corner(0) + a * (corner(1) - corner(0)) + b * (corner(2) - corner(0));
      double nearest = std::numeric_limits<double>::infinity();
      for (cv::Vec3f const& point : points) {
        nearest = std::min(nearest, cv::norm(cv::Vec3d(point) - place));
      }
      worst = std::max(worst, nearest);
    }
    EXPECT_LT(worst, longest * 2 / 3) << "a corner is two thirds of a median from the middle; " << t;
    int own = 0;
    for (int i = 0; i < static_cast<int>(points.total()); ++i) {
      if (std::abs(points(i)[0] - (static_cast<float>(t) + 0.5F) * 10) < 6 &&
          cv::norm(cv::Vec3d(normals(i)) - normal) < 1e-6) {
        EXPECT_NEAR(normal.dot(cv::Vec3d(points(i)) - corner(0)), 0, 1e-5);
        ++own;
      }
    }
    EXPECT_GT(own, 0) << t;
  }
  // The large face has 4 to 9 points on the square of an edge, the needle about two an edge's length.
  auto const count = static_cast<double>(points.total());
  double const squares = 40 / (longest * longest);
  EXPECT_GT(count, 4 * squares);
  EXPECT_LT(count, 9 * squares + 4 * 12 / longest + 1);
}

// The long faces of a thin rod: halved across their longest edges they had the square of that many points.
TEST(SampleMesh, NeedlesHaveTwoPointsOnAnEdgesLength) {
  SurfaceMesh mesh;
  mesh.vertices = {{0, 0, 0}, {1000, 0, 0}, {1000, 0.05F, 0}, {0, 0.05F, 0}};
  mesh.triangles = {{0, 1, 2}, {2, 3, 0}};
  PointCloud const cloud = sampleMesh(mesh, 0.5);
  EXPECT_NEAR(static_cast<double>(cloud.points().total()), 2 * 2 * 1000 / 0.5, 4);
}

TEST(SampleMesh, ASmallTriangleHasItsMiddle) {
  SurfaceMesh mesh = threeTriangles();
  mesh.triangles = {{0, 1, 2}};
  PointCloud const cloud = sampleMesh(mesh, 13);
  ASSERT_EQ(cloud.points().total(), 1U);
  cv::Mat_<cv::Vec3f> const points = cloud.points();
  EXPECT_LT(cv::norm(points(0) - cv::Vec3f(10 / 3.0F, 8 / 3.0F, 0)), 1e-6);
}

TEST(SampleMesh, RefusesWhatHasNoPoints) {
  SurfaceMesh mesh = threeTriangles();
  for (double const edge : {0.0, -1.0, std::nan("")}) {
    expectError([&] { sampleMesh(mesh, edge); }, "longestEdge");
  }
  expectError([&] { sampleMesh(mesh, 1e-4); }, "100000000 points");
  mesh.triangles = {{0, 0, 1}};
  expectError([&] { sampleMesh(mesh, 1); }, "no triangle with an area");
  mesh.triangles = {{0, 1, 9}};
  expectError([&] { sampleMesh(mesh, 1); }, "vertex 9 of 9");
  mesh.vertices[1][1] = std::numeric_limits<float>::quiet_NaN();
  mesh.triangles = {{0, 1, 2}};
  expectError([&] { sampleMesh(mesh, 1); }, "Vertex 1 is not finite");
}

} // namespace
} // namespace vorn::mv
