// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/simplify.hpp>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

SurfaceMesh sheet(int side, double (*height)(double, double)) {
  cv::Mat_<cv::Vec3f> points(side, side);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      points(row, column) = cv::Vec3f(cv::Vec3d(column, row, 200.0 + height(column, row)));
    }
  }
  PointCloud cloud(points, true);
  cloud.state()(cv::Rect(side / 4, side / 3, side / 6, side / 7)).setTo(255);
  return meshOf(cloud);
}

double bumps(double x, double y) {
  return 1.5 * std::sin(0.2 * x) * std::cos(0.15 * y);
}

double flat(double /*x*/, double /*y*/) {
  return 0.0;
}

/// The distance of a point from a triangle by search: over its barycentric coordinates on ever finer grids.
double distanceBySearch(cv::Vec3d const& p, cv::Vec3d const& a, cv::Vec3d const& b, cv::Vec3d const& c) {
  double bestU = 1.0 / 3.0;
  double bestV = 1.0 / 3.0;
  double best = cv::norm(p - (a + b + c) * (1.0 / 3.0));
  for (double step = 0.25; step > 1e-4; step *= 0.5) {
    double const u0 = bestU;
    double const v0 = bestV;
    for (int i = -3; i <= 3; ++i) {
      for (int j = -3; j <= 3; ++j) {
        double const u = std::clamp(u0 + i * step, 0.0, 1.0);
        double const v = std::clamp(v0 + j * step, 0.0, 1.0 - u);
        double const distance = cv::norm(p - (a * (1.0 - u - v) + b * u + c * v));
        if (distance < best) {
          best = distance;
          bestU = u;
          bestV = v;
        }
      }
    }
  }
  return best;
}

double farthest(SurfaceMesh const& given, SurfaceMesh const& result) {
  double worst = 0.0;
  for (cv::Vec3f const& vertex : given.vertices) {
    double nearest = 1e9;
    for (cv::Vec3i const& t : result.triangles) {
      auto const at = [&](int i) { return cv::Vec3d(result.vertices[static_cast<std::size_t>(t[i])]); };
      cv::Vec3d const p(vertex);
      double const radius =
          std::max({cv::norm(at(0) - at(1)), cv::norm(at(1) - at(2)), cv::norm(at(2) - at(0))});
      if (cv::norm(p - at(0)) < nearest + radius) {
        nearest = std::min(nearest, distanceBySearch(p, at(0), at(1), at(2)));
      }
    }
    worst = std::max(worst, nearest);
  }
  return worst;
}

TEST(SimplifiedMesh, StaysWithinItsErrorOfEveryVertex) {
  SurfaceMesh const mesh = sheet(31, bumps);
  std::size_t last = mesh.triangles.size();
  for (double const error : {0.02, 0.1, 0.5}) {
    SimplifySettings settings;
    settings.maxError = error;
    SurfaceMesh const result = simplified(mesh, settings);
    EXPECT_LT(result.triangles.size(), last * 3 / 4);
    last = result.triangles.size();
    EXPECT_LE(farthest(mesh, result), error + 1e-3);
    MeshFigures const figures = figuresOf(result);
    EXPECT_EQ(figures.boundaries.size(), 2U) << "the hole stays";
    EXPECT_EQ(figures.pieces, 1U);
    EXPECT_EQ(figures.faultyEdges, 0U);
    for (cv::Vec3i const& t : result.triangles) {
      auto const at = [&](int i) { return result.vertices[static_cast<std::size_t>(t[i])]; };
      EXPECT_LT((at(1) - at(0)).cross(at(2) - at(0))[2], 0.0F) << "no triangle turned over";
    }
  }
}

TEST(SimplifiedMesh, OfAFlatSheetIsItsOutline) {
  SurfaceMesh const mesh = sheet(31, flat);
  SimplifySettings settings;
  settings.maxError = 1e-3;
  SurfaceMesh const result = simplified(mesh, settings);
  EXPECT_LT(result.triangles.size(), 60U);
  EXPECT_NEAR(figuresOf(result).area, figuresOf(mesh).area, 1e-3);
  settings.minTriangles = 500;
  EXPECT_NEAR(static_cast<double>(simplified(mesh, settings).triangles.size()), 500.0, 2.0);
}

TEST(SimplifiedMesh, OfAClosedBodyStaysClosed) {
  // A ball by latitude and longitude.
  SurfaceMesh ball;
  constexpr int rings = 24;
  constexpr int sides = 40;
  for (int ring = 1; ring < rings; ++ring) {
    for (int side = 0; side < sides; ++side) {
      double const polar = CV_PI * ring / rings;
      double const turn = 2.0 * CV_PI * side / sides;
      ball.vertices.emplace_back(cv::Vec3d(10.0 * std::sin(polar) * std::cos(turn),
                                           10.0 * std::sin(polar) * std::sin(turn), 10.0 * std::cos(polar)));
    }
  }
  ball.vertices.emplace_back(0.0F, 0.0F, 10.0F);
  ball.vertices.emplace_back(0.0F, 0.0F, -10.0F);
  int const top = (rings - 1) * sides;
  for (int side = 0; side < sides; ++side) {
    int const next = (side + 1) % sides;
    int const last = (rings - 2) * sides;
    ball.triangles.emplace_back(top, side, next);
    ball.triangles.emplace_back(top + 1, last + next, last + side);
    for (int ring = 0; ring + 2 < rings; ++ring) {
      int const a = ring * sides;
      ball.triangles.emplace_back(a + side, a + sides + side, a + sides + next);
      ball.triangles.emplace_back(a + side, a + sides + next, a + next);
    }
  }
  SimplifySettings settings;
  settings.maxError = 0.3;
  MeshFigures const figures = figuresOf(simplified(ball, settings));
  EXPECT_TRUE(figures.boundaries.empty());
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_EQ(figures.degenerateTriangles, 0U);
  EXPECT_NEAR(figures.volume, figuresOf(ball).volume, 0.3 * figures.area);
}

/// A disc or cone around each of the given places above the middle of one circle of radius 100.
SurfaceMesh fan(int count, std::vector<float> const& heights) {
  SurfaceMesh mesh;
  for (float const height : heights) {
    mesh.vertices.emplace_back(0.0F, 0.0F, height);
  }
  auto const hubs = static_cast<int>(heights.size());
  for (int i = 0; i < count; ++i) {
    double const angle = 2.0 * CV_PI * i / count;
    mesh.vertices.emplace_back(cv::Vec3d(100.0 * std::cos(angle), 100.0 * std::sin(angle), 0.0));
    int const next = (i + 1) % count;
    for (int hub = 0; hub < hubs; ++hub) {
      mesh.triangles.emplace_back(hub, hubs + (hub == 0 ? i : next), hubs + (hub == 0 ? next : i));
    }
  }
  return mesh;
}

// Whatever takes the square of a vertex's triangles, or more, does not end here.
TEST(SimplifiedMesh, EndsWhereOneVertexHasManyTriangles) {
  for (std::vector<float> const& heights : {std::vector<float>{0.0F}, {80.0F}, {80.0F, -60.0F}}) {
    SurfaceMesh const mesh = fan(20000, heights);
    SimplifySettings settings;
    settings.maxError = 0.01;
    SurfaceMesh const result = simplified(mesh, settings);
    MeshFigures const figures = figuresOf(result);
    // A chord of this error spans 2 acos(1 - error / radius).
    double const fewest = CV_PI / std::acos(1.0 - settings.maxError / 100.0);
    EXPECT_LT(static_cast<double>(result.triangles.size()),
              2.0 * fewest * static_cast<double>(heights.size()));
    EXPECT_EQ(figures.faultyEdges, 0U);
    EXPECT_EQ(figures.pieces, 1U);
    EXPECT_EQ(figures.boundaries.size(), heights.size() == 1 ? 1U : 0U);
    EXPECT_NEAR(figures.area / figuresOf(mesh).area, 1.0, 3e-4);
  }
  SurfaceMesh const mesh = fan(1000, {80.0F, -60.0F});
  SimplifySettings settings;
  settings.maxError = 0.05;
  EXPECT_LE(farthest(mesh, simplified(mesh, settings)), settings.maxError + 1e-3);
}

TEST(SimplifiedMesh, RefusesWhatIsNoSurface) {
  SurfaceMesh mesh = sheet(6, flat);
  SimplifySettings settings;
  expectError([&] { simplified(mesh, settings); }, "maxError is 0");
  settings.maxError = 1.0;
  std::swap(mesh.triangles[3][0], mesh.triangles[3][1]);
  expectError([&] { simplified(mesh, settings); }, "opposite sides");
  mesh.triangles.emplace_back(0, 1, 1000000);
  expectError([&] { simplified(mesh, settings); }, "vertex 1000000");
}

} // namespace
} // namespace vorn::mv
