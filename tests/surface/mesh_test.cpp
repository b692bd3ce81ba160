// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/graphic/stl_file.hpp>
#include <vorn/mv/surface/fuse.hpp>
#include <vorn/mv/surface/mesh.hpp>

#include "support/expect_error.hpp"
#include "support/point_sets.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

/// A tilted plane 100 in front of the sensor, 0.5 apart.
cv::Mat_<cv::Vec3f> tilted(int rows, int columns) {
  cv::Mat_<cv::Vec3f> points(rows, columns);
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      float const x = 0.5F * static_cast<float>(column);
      points(row, column) = {x, 0.5F * static_cast<float>(row), 100.0F + 0.75F * x};
    }
  }
  return points;
}

/// A cube of edge 2 whose corners are counterclockwise seen from outside.
SurfaceMesh cube() {
  SurfaceMesh mesh;
  for (int i = 0; i < 8; ++i) {
    mesh.vertices.emplace_back(cv::Vec3d(i % 2 * 2.0 + 50.0, i / 2 % 2 * 2.0, i / 4 * 2.0));
  }
  mesh.triangles = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                    {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
  return mesh;
}

TEST(PointMesh, OfAPlaneIsThatOfItsGrid) {
  cv::Mat_<cv::Vec3f> points = tilted(30, 40).reshape(3, 1).clone();
  // Without its order, and with some points twice.
  std::reverse(points.begin(), points.end());
  points(7) = points(8);
  points(900) = points(905) + cv::Vec3f::all(1e-4F);
  SurfaceMesh const mesh = meshOf(PointCloud(points, false));
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_EQ(mesh.vertices.size(), 1198U);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_EQ(figures.pieces, 1U);
  EXPECT_NEAR(figures.area, 14.5 * 19.5 * 1.25, 0.002 * figures.area) << "the outline has no gaps";
  for (cv::Vec3i const& t : mesh.triangles) {
    auto const at = [&](int i) { return mesh.vertices[static_cast<std::size_t>(t[i])]; };
    cv::Vec3f const cross = (at(1) - at(0)).cross(at(2) - at(0));
    ASSERT_GT(cross.dot(mesh.normals[static_cast<std::size_t>(t[0])]), 0.0F);
  }
  PointCloud const heap(cv::Mat_<cv::Vec3f>(20, 1, cv::Vec3f(1.0F, 2.0F, 3.0F)), false);
  expectError([&] { meshOf(heap); }, "one place");
}

// No length in it is absolute: in metres or micrometres the same points make the same triangles.
// Most have a neighbour at half the distance that points on a grid as dense have: four times that left holes
// everywhere, in the mesh of the points and of what views were fused to.
TEST(PointMesh, OfPointsByChanceHasNoHoles) {
  cv::RNG random(6);
  cv::Mat_<cv::Vec3f> points(3000, 1);
  for (cv::Vec3f& point : points) {
    point = cv::Vec3f(random.uniform(-30.0F, 30.0F), random.uniform(-25.0F, 25.0F), 100.0F);
  }
  PointCloud const cloud(points, false);
  for (SurfaceMesh const& mesh : {meshOf(cloud), fuse({cloud}).mesh}) {
    MeshFigures const figures = figuresOf(mesh);
    EXPECT_GT(figures.area, 0.93 * 3000) << "without the outline between its points";
    EXPECT_EQ(figures.pieces, 1U);
    EXPECT_LE(figures.boundaries.size(), 10U);
  }
}

TEST(PointMesh, DoesNotDependOnTheUnit) {
  cv::RNG random(4);
  cv::Mat_<cv::Vec3f> points(500, 1);
  for (cv::Vec3f& point : points) {
    float const x = random.uniform(0.0F, 20.0F);
    float const y = random.uniform(0.0F, 20.0F);
    point = {x, y, 100.0F + 0.01F * x * y};
  }
  SurfaceMesh const mesh = meshOf(PointCloud(points, false));
  ASSERT_GT(mesh.triangles.size(), 800U);
  for (float const unit : {1.0F / 1024, 1024.0F}) { // exact in floats
    cv::Mat_<cv::Vec3f> scaled = points.clone();
    for (cv::Vec3f& point : scaled) {
      point *= unit;
    }
    SurfaceMesh const other = meshOf(PointCloud(scaled, false));
    EXPECT_EQ(other.vertices.size(), mesh.vertices.size()) << unit;
    EXPECT_EQ(other.triangles, mesh.triangles) << unit;
  }
}

TEST(PointMesh, KnowsOnlyPresentPointsAndEachPlaceOnce) {
  cv::Mat_<cv::Vec3f> const all = tilted(60, 80).reshape(3, 1).clone();
  SurfaceMesh const whole = meshOf(PointCloud(all, false));
  // Every point twice, and a third of all points in one place as scanners write what they did not see.
  cv::Mat_<cv::Vec3f> twice(1, 2 * all.cols + all.cols);
  twice.setTo(cv::Scalar::all(0.0));
  all.copyTo(twice.colRange(0, all.cols));
  all.copyTo(twice.colRange(2 * all.cols, 3 * all.cols));
  SurfaceMesh const once = meshOf(PointCloud(twice, false));
  EXPECT_EQ(once.vertices.size(), all.total());
  EXPECT_EQ(once.triangles.size(), whole.triangles.size());
  for (int const step : {2, 3, 5, 8}) {
    PointCloud thinned(all.clone(), false);
    std::vector<cv::Vec3f> left;
    for (int i = 0; i < all.cols; ++i) {
      if (i / 80 % step == 0 && i % 80 % step == 0) {
        left.push_back(all(i));
      } else {
        thinned.state()(i) = 1;
      }
    }
    SurfaceMesh const mesh = meshOf(thinned);
    SurfaceMesh const copied = meshOf(PointCloud(cv::Mat_<cv::Vec3f>(left, true).reshape(3, 1), false));
    EXPECT_EQ(mesh.vertices, copied.vertices) << "every " << step;
    EXPECT_EQ(mesh.triangles, copied.triangles) << "every " << step;
    EXPECT_EQ(figuresOf(mesh).pieces, 1U);
  }
}

/// An octree over points far away resolves none of the others.
TEST(PointMesh, HasNothingToDoWithPointsFarAway) {
  cv::Mat_<cv::Vec3f> const sheet = tilted(60, 50).reshape(3, 1);
  SurfaceMesh const mesh = meshOf(PointCloud(sheet, false));
  cv::Mat_<cv::Vec3f> strays(1, sheet.cols + 1, cv::Vec3f(1e8F, 0, 500));
  sheet.copyTo(strays.colRange(0, sheet.cols));
  SurfaceMesh const same = meshOf(PointCloud(strays, false));
  EXPECT_EQ(same.triangles, mesh.triangles);
  EXPECT_EQ(same.normals, mesh.normals);
  EXPECT_EQ(same.cells, mesh.cells);
}

TEST(GridMesh, CoversAPlaneExactlyAndFacesTheSensor) {
  cv::Mat_<cv::Vec3b> const texture(30, 40, cv::Vec3b(1, 2, 3));
  SurfaceMesh const mesh = meshOf(PointCloud(tilted(30, 40), true, {}, texture));
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_EQ(mesh.triangles.size(), 2U * 29 * 39);
  EXPECT_EQ(mesh.vertices.size(), 1200U);
  EXPECT_NEAR(figures.area, 14.5 * 19.5 * 1.25, 1e-3);
  EXPECT_EQ(figures.pieces, 1U);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_TRUE(std::isnan(figures.volume)) << "an open mesh encloses nothing";
  ASSERT_EQ(figures.boundaries.size(), 1U);
  EXPECT_EQ(figures.boundaries[0].size(), 2U * (29 + 39));
  for (cv::Vec3f const& normal : mesh.normals) {
    ASSERT_LT(cv::norm(normal - cv::Vec3f(0.6F, 0.0F, -0.8F)), 1e-5F);
  }
  EXPECT_EQ(graphicObjectOf(mesh).colors()[0], cv::Vec4b(3, 2, 1, 255));
  EXPECT_EQ(mesh.cells[41], 41U);
}

TEST(MeshFigures, BoundariesOfFaultyMeshesAreLoops) {
  SurfaceMesh mesh;
  mesh.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 1}};
  auto const loops = [&](std::vector<cv::Vec3i> const& triangles) {
    mesh.triangles = triangles;
    return figuresOf(mesh).boundaries;
  };
  using Loops = std::vector<std::vector<int>>;
  Loops const flipped = loops({{0, 1, 2}, {1, 2, 3}}); // the triangles face opposite sides
  ASSERT_EQ(flipped.size(), 1U);
  std::set<std::pair<int, int>> edges;
  for (std::size_t i = 0; i < flipped[0].size(); ++i) {
    edges.insert(std::minmax({flipped[0][i], flipped[0][(i + 1) % flipped[0].size()]}));
  }
  EXPECT_EQ(edges, (std::set<std::pair<int, int>>{{0, 1}, {0, 2}, {1, 3}, {2, 3}}));
  EXPECT_EQ(loops({{0, 1, 2}, {1, 1, 2}}), loops({{0, 1, 2}})) << "a vertex twice joins nothing";
  EXPECT_EQ(figuresOf(mesh).faultyEdges, 0U);
  // Three triangles on the edge 0-1: a loop around two, and what is left of the third.
  Loops const fin = loops({{0, 1, 2}, {1, 0, 3}, {0, 1, 4}});
  std::set<int> seen;
  for (std::vector<int> const& loop : fin) {
    EXPECT_GE(loop.size(), 3U);
    seen.insert(loop.begin(), loop.end());
  }
  EXPECT_EQ(fin.size(), 2U);
  EXPECT_EQ(seen.size(), 5U);
  // Many triangles that share a vertex alone have an end each.
  constexpr int count = 50000;
  mesh.vertices.resize(1 + 2 * count);
  std::vector<cv::Vec3i> fans;
  for (int i = 0; i < count; ++i) {
    fans.emplace_back(0, 2 * i + 1, 2 * i + 2);
  }
  Loops const ends = loops(fans);
  ASSERT_EQ(ends.size(), static_cast<std::size_t>(count));
  for (std::vector<int> const& end : ends) {
    ASSERT_EQ(end.size(), 3U);
  }
}

TEST(GridMesh, FacesTheSensorWhateverTheOrderOfRows) {
  cv::Mat_<cv::Vec3f> flipped;
  cv::flip(tilted(30, 40), flipped, 0);
  for (cv::Vec3f const& normal : meshOf(PointCloud(flipped, true)).normals) {
    ASSERT_LT(normal[2], 0.0F);
  }
}

TEST(GridMesh, KeepsHolesAndDoesNotBridgeSteps) {
  cv::Mat_<cv::Vec3f> points = tilted(30, 40);
  for (int row = 0; row < 30; ++row) {
    for (int column = 20; column < 40; ++column) {
      points(row, column)[2] += 4.0F;
    }
  }
  points(10, 10)[0] = notANumber;
  PointCloud cloud(points, true);
  cloud.state()(10, 11) = 1;
  cloud.state()(29, 39) = 255;
  SurfaceMesh const mesh = meshOf(cloud);
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_EQ(figures.pieces, 2U);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_EQ(figures.boundaries.size(), 3U) << "two outer ends and a hole";
  EXPECT_EQ(mesh.vertices.size(), 1197U);
  std::size_t const shortest =
      std::min_element(figures.boundaries.begin(), figures.boundaries.end(),
                       [](auto const& a, auto const& b) { return a.size() < b.size(); })
          ->size();
  EXPECT_EQ(shortest, 6U) << "ten cells around two, less four corners that three points close";
  for (cv::Vec3i const& triangle : mesh.triangles) {
    std::set<bool> sides;
    for (int const corner : triangle.val) {
      sides.insert(mesh.cells[static_cast<std::size_t>(corner)] % 40 >= 20);
    }
    ASSERT_EQ(sides.size(), 1U);
  }
}

TEST(GridMesh, RefusesWhatHasNoMesh) {
  expectError([] { meshOf(PointCloud(cv::Mat_<cv::Vec3f>(9, 9, cv::Vec3f(1, 2, 3)), true)); },
              "81 present points");
  expectError([] { meshOf(PointCloud(cv::Mat_<cv::Vec3f>(), true)); }, "0 present points");
  MeshSettings settings;
  settings.maxViewAngle = 0.0;
  expectError([&] { meshOf(PointCloud(tilted(10, 10), true), settings); }, "maxViewAngle is 0");
  settings = {};
  settings.maxEdge = 0.4F;
  expectError([&] { meshOf(PointCloud(tilted(10, 10), true), settings); }, "can be joined");
}

TEST(GridMesh, IsWrittenAsStl) {
  TemporaryFolder const folder;
  SurfaceMesh const mesh = meshOf(PointCloud(tilted(12, 9), true));
  graphic::STLFile().write(folder / "mesh.stl", graphicObjectOf(mesh));
  EXPECT_EQ(graphic::STLFile().read(folder / "mesh.stl").triangles().size(), mesh.triangles.size());
}

TEST(MeshFigures, AreThoseOfACube) {
  SurfaceMesh mesh = cube();
  MeshFigures const figures = figuresOf(mesh);
  EXPECT_NEAR(figures.area, 24.0, 1e-9);
  EXPECT_NEAR(figures.volume, 8.0, 1e-9);
  EXPECT_TRUE(figures.boundaries.empty());
  std::vector<cv::Vec3f> const normals = vertexNormalsOf(mesh);
  for (int i = 0; i < 8; ++i) {
    // Weighted by angles, each face counts alike however it is cut into triangles.
    cv::Vec3f const expected = cv::Vec3d(i % 2 * 2.0 - 1.0, i / 2 % 2 * 2.0 - 1.0, i / 4 * 2.0 - 1.0);
    EXPECT_LT(cv::norm(normals[static_cast<std::size_t>(i)] - expected * (1.0F / std::sqrt(3.0F))), 1e-5F)
        << i;
  }
  for (cv::Vec3i& triangle : mesh.triangles) {
    std::swap(triangle[1], triangle[2]);
  }
  EXPECT_NEAR(figuresOf(mesh).volume, -8.0, 1e-9) << "inside out";
}

TEST(MeshFigures, TellBoundariesApartThatTouchInAVertex) {
  SurfaceMesh fans;
  fans.vertices = {{0, 0, 0}};
  for (int i = 0; i < 3; ++i) {
    double const angle = 2.0 * i;
    fans.vertices.emplace_back(cv::Vec3d(std::cos(angle), std::sin(angle), 0.0));
    fans.vertices.emplace_back(cv::Vec3d(std::cos(angle + 0.5), std::sin(angle + 0.5), 0.0));
    fans.triangles.emplace_back(0, 2 * i + 1, 2 * i + 2);
    std::vector<std::vector<int>> const loops = figuresOf(fans).boundaries;
    ASSERT_EQ(loops.size(), fans.triangles.size());
    EXPECT_TRUE(std::all_of(loops.begin(), loops.end(), [](auto const& loop) { return loop.size() == 3; }));
  }
  // Two numberings, so that loops are met at the vertex they share and elsewhere.
  for (bool const isReversed : {false, true}) {
    SurfaceMesh plate;
    constexpr int side = 7;
    for (int i = 0; i < side * side; ++i) {
      plate.vertices.emplace_back(cv::Vec3d(i % side, i / side, 0.0));
    }
    auto const at = [&](int row, int column) {
      int const i = row * side + column;
      return isReversed ? side * side - 1 - i : i;
    };
    for (int row = 0; row + 1 < side; ++row) {
      for (int column = 0; column + 1 < side; ++column) {
        bool const isHole = row == column && row >= 1 && row <= 4;
        if (!isHole) {
          plate.triangles.emplace_back(at(row, column), at(row, column + 1), at(row + 1, column));
          plate.triangles.emplace_back(at(row, column + 1), at(row + 1, column + 1), at(row + 1, column));
        }
      }
    }
    std::multiset<std::size_t> sizes;
    for (std::vector<int> const& loop : figuresOf(plate).boundaries) {
      sizes.insert(loop.size());
      EXPECT_EQ(std::set<int>(loop.begin(), loop.end()).size(), loop.size());
    }
    EXPECT_EQ(sizes, (std::multiset<std::size_t>{4, 4, 4, 4, 24})) << "four holes and the outer end";
  }
}

TEST(MeshFigures, SayWhatIsWrong) {
  SurfaceMesh flipped = cube();
  std::swap(flipped.triangles[3][0], flipped.triangles[3][1]);
  EXPECT_EQ(figuresOf(flipped).faultyEdges, 3U);
  EXPECT_TRUE(std::isnan(figuresOf(flipped).volume));
  SurfaceMesh fin = cube();
  fin.vertices.emplace_back(0.0F, 0.0F, 9.0F);
  fin.triangles.emplace_back(4, 5, 8);
  EXPECT_EQ(figuresOf(fin).faultyEdges, 1U);
  SurfaceMesh needle = cube();
  needle.triangles.emplace_back(0, 0, 7);
  EXPECT_EQ(figuresOf(needle).degenerateTriangles, 1U);
  SurfaceMesh wrong = cube();
  wrong.triangles.emplace_back(0, 1, 8);
  expectError([&] { figuresOf(wrong); }, "names vertex 8 of 8");
  expectError([&] { vertexNormalsOf(wrong); }, "names vertex 8 of 8");
  SurfaceMesh two = cube();
  SurfaceMesh const other = cube();
  for (int i = 0; i < 8; ++i) {
    two.vertices.push_back(other.vertices[static_cast<std::size_t>(i)] + cv::Vec3f(5.0F, 0.0F, 0.0F));
  }
  for (int i = 2; i < 12; ++i) {
    two.triangles.push_back(other.triangles[static_cast<std::size_t>(i)] + cv::Vec3i(8, 8, 8));
  }
  MeshFigures const figures = figuresOf(two);
  EXPECT_EQ(figures.pieces, 2U);
  ASSERT_EQ(figures.boundaries.size(), 1U);
  std::vector<int> loop = figures.boundaries[0];
  std::sort(loop.begin(), loop.end());
  EXPECT_EQ(loop, (std::vector<int>{8, 9, 10, 11})) << "the face that is missing";
}

} // namespace
} // namespace vorn::mv
