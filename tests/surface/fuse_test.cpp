// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/fuse.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/expect_error.hpp"
#include "surface/part_views.hpp"

namespace vorn::mv {
namespace {

using test::PartViews;

/// Errors of a cloud against the part, away from its edges.
struct Errors {
  std::size_t count = 0;
  double bias = 0.0;
  double ratio = 0.0;  ///< RMS over what the sigmas of the views that see each place give together
  double turned = 0.0; ///< the same, each sigma being along its line of sight
  double stated = 0.0; ///< RMS over the field "sigma"
};

Errors errorsOf(PointCloud const& cloud, PartViews const& views) {
  Errors errors;
  for (int i = 0; i < cloud.points().rows; ++i) {
    cv::Vec3d const x(cloud.points()(i));
    constexpr double margin = 2.0;
    if (!test::isAwayFromEdges(x, margin)) {
      continue;
    }
    double const error = sim::distanceToPart(x);
    auto const sigma = static_cast<double>(cloud.fields().at("sigma")(i));
    ++errors.count;
    errors.bias += error;
    cv::Vec3d const normal = test::partNormal(x);
    errors.ratio += error * error * views.weightAt(x, normal, 1.0);
    constexpr double flattest = 0.3; // below, more than noise is turned
    errors.turned += error * error * views.weightAt(x, normal, flattest);
    errors.stated += error * error / (sigma * sigma);
  }
  auto const count = static_cast<double>(errors.count);
  errors.bias /= count;
  errors.ratio = std::sqrt(errors.ratio / count);
  errors.turned = std::sqrt(errors.turned / count);
  errors.stated = std::sqrt(errors.stated / count);
  return errors;
}

constexpr double noise = 0.03;

TEST(FusedPart, IsAsExactAsItsViewsTogether) {
  for (bool const isOrganized : {true, false}) {
    PartViews views(8, 2, noise);
    for (PointCloud& view : views.clouds) {
      view.fields()["sigma"] = cv::Mat_<float>(view.points().size(), static_cast<float>(noise));
      if (!isOrganized) {
        cv::Matx44d const pose = view.getTransform();
        view = PointCloud::fromVertices(view.getGraphicObject(false));
        view.setTransform(pose);
        NormalSettings settings;
        settings.orientation = NormalOrientation::TowardsViewpoint;
        view.calcNormals(settings);
      }
    }
    Fusion const fusion = fuse(views.clouds);
    Errors const errors = errorsOf(fusion.cloud, views);
    EXPECT_GT(errors.count, fusion.cloud.pointCount() / 2);
    EXPECT_LT(errors.ratio, 1.15) << "grid: " << isOrganized;
    EXPECT_LT(errors.turned, isOrganized ? 1.15 : 1.5) << "grid: " << isOrganized;
    EXPECT_LT(std::abs(errors.bias), 0.1 * noise) << "grid: " << isOrganized;
    EXPECT_NEAR(errors.stated, 1.0, 0.2) << "grid: " << isOrganized;
    for (FusedView const& view : fusion.views) {
      EXPECT_LT(view.outliers, view.points / 500);
      EXPECT_GT(view.overlap, 0.9);
      EXPECT_LT(view.apart, 0.02);
    }
  }
}

/// Beyond the last points of a list its surface ends or bends: planes through them tell nothing of other
/// views.
TEST(FusedPart, OfTruePosesHasNoViewsThatLieOff) {
  for (bool const isOrganized : {true, false}) {
    PartViews views(4, 4, noise);
    for (PointCloud& view : views.clouds) {
      if (!isOrganized) {
        cv::Matx44d const pose = view.getTransform();
        view = PointCloud::fromVertices(view.getGraphicObject(false));
        view.setTransform(pose);
      }
    }
    for (FusedView const& view : fuse(views.clouds).views) {
      EXPECT_GT(view.overlap, 0.4) << isOrganized;
      EXPECT_LT(view.apart, 0.02) << isOrganized;
    }
  }
}

/// Mean errors of a surface over squares of a flat face.
struct FacePatch {
  int count = 0;
  double error = 0.0;
  double sigma = 0.0; ///< the points' own
};

TEST(FusedPart, HasFlatFacesThatAreFlat) {
  PartViews views(8, 2, noise);
  for (PointCloud& view : views.clouds) {
    view.fields()["sigma"] = cv::Mat_<float>(view.points().size(), static_cast<float>(noise));
  }
  Fusion const fusion = fuse(views.clouds);
  // By the axis that the face looks along, and its square.
  std::map<std::vector<int>, FacePatch> patches;
  for (int i = 0; i < fusion.cloud.points().rows; ++i) {
    cv::Vec3d const x(std::as_const(fusion.cloud).points()(i));
    cv::Vec3d const normal = test::partNormal(x);
    bool const isFlat = std::max({std::abs(normal[0]), std::abs(normal[1]), std::abs(normal[2])}) > 0.9999;
    if (isFlat && test::isAwayFromEdges(x, 2.0)) {
      constexpr double side = 6.0;
      std::vector<int> key;
      for (int axis = 0; axis < 3; ++axis) {
        key.push_back(cvRound(normal[axis]));
        key.push_back(static_cast<int>(std::floor(x[axis] / side)));
      }
      FacePatch& patch = patches[key];
      ++patch.count;
      patch.error += sim::distanceToPart(x);
      patch.sigma += static_cast<double>(fusion.cloud.fields().at("sigma")(i));
    }
  }
  int compared = 0;
  for (auto const& [key, patch] : patches) {
    constexpr int fewest = 20;
    if (patch.count >= fewest) {
      // A tenth of a view's sigma for neighbours that share readings.
      double const chance = 4.5 * patch.sigma / patch.count / std::sqrt(1.0 * patch.count);
      EXPECT_LT(std::abs(patch.error / patch.count), chance + 0.1 * noise) << testing::PrintToString(key);
      ++compared;
    }
  }
  EXPECT_GT(compared, 300) << "squares of the block, its tower and boss";
}

double meanEdge(SurfaceMesh const& mesh) {
  double sum = 0.0;
  for (cv::Vec3i const& triangle : mesh.triangles) {
    for (int i = 0; i < 3; ++i) {
      sum += cv::norm(mesh.vertices[static_cast<std::size_t>(triangle[i])] -
                      mesh.vertices[static_cast<std::size_t>(triangle[(i + 1) % 3])]);
    }
  }
  return sum / (3.0 * static_cast<double>(mesh.triangles.size()));
}

TEST(FusedPart, HasAMeshWithoutDoubledSkins) {
  PartViews const views(8, 2, noise);
  Fusion const fusion = fuse(views.clouds);
  MeshFigures const figures = figuresOf(fusion.mesh);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_EQ(figures.degenerateTriangles, 0U);
  EXPECT_EQ(figures.pieces, 1U);
  std::size_t longest = 0;
  std::size_t rims = 0;
  for (std::vector<int> const& loop : figures.boundaries) {
    longest = std::max(longest, loop.size());
    rims += loop.size();
  }
  EXPECT_GT(longest, 200U) << "the foot, which no view sees, stays open";
  EXPECT_LT(rims - longest, longest / 2) << "and little else";
  // The surface above the foot, from the areas of the bodies less what they hide of each other; the ball cuts
  // no other body but the block's top at a depth of 1.
  double const block = 120.0 * 80.0 + 2.0 * (120.0 + 80.0) * 30.0;
  double const tower = 2.0 * (40.0 + 44.0) * 17.0;
  double const boss = 2.0 * CV_PI * 11.0 * 15.0;
  double const ball = 2.0 * CV_PI * 20.0 * 21.0 - CV_PI * (400.0 - 1.0);
  double const bar = 2.0 * CV_PI * 6.0 * 14.0;
  EXPECT_NEAR(figures.area, block + tower + boss + ball + bar, 0.02 * figures.area);
  // No coarser than one view.
  EXPECT_LT(meanEdge(fusion.mesh), meanEdge(meshOf(views.clouds[0])));
}

TEST(FusedPart, IsTheSameForAnyNumberOfThreads) {
  PartViews const views(4, 8, noise);
  int const threads = cv::getNumThreads();
  Fusion const one = fuse(views.clouds);
  for (int const count : {1, 2, 5}) {
    cv::setNumThreads(count);
    Fusion const again = fuse(views.clouds);
    EXPECT_EQ(cv::norm(again.cloud.points(), one.cloud.points(), cv::NORM_INF), 0.0);
    EXPECT_TRUE(std::equal(again.mesh.triangles.begin(), again.mesh.triangles.end(),
                           one.mesh.triangles.begin(), one.mesh.triangles.end()));
    EXPECT_EQ(again.views[1].rms, one.views[1].rms);
  }
  cv::setNumThreads(threads);
}

TEST(FusedPart, LosesWhatOtherViewsSeeThrough) {
  PartViews views(6, 4, noise);
  // Points that fly between the camera and the part, in two views.
  std::size_t flying = 0;
  for (std::size_t view : {1U, 4U}) {
    cv::Mat_<cv::Vec3f>& points = views.clouds[view].points();
    for (int row = 3; row < points.rows; row += 7) {
      for (int column = 2; column < points.cols; column += 9) {
        if (views.clouds[view].state()(row, column) == 0) {
          points(row, column) *= 0.97F;
          ++flying;
        }
      }
    }
  }
  Fusion const fusion = fuse(views.clouds);
  ASSERT_GT(flying, 50U);
  std::size_t left = 0;
  for (cv::Vec3f const& point : fusion.cloud.points()) {
    left += std::abs(sim::distanceToPart(cv::Vec3d(point))) > 5.0 ? 1 : 0;
  }
  // Before the part's outline there is nothing behind that would speak against a point.
  EXPECT_LT(left, flying / 4) << "of " << flying;
  EXPECT_GT(fusion.views[1].outliers + fusion.views[4].outliers, flying * 7 / 10);
  EXPECT_LT(fusion.views[0].outliers, fusion.views[0].points / 200);
}

double nearestDistance(PointCloud const& cloud, cv::Vec3d const& place) {
  double nearest = std::numeric_limits<double>::max();
  for (cv::Vec3f const& point : cloud.points()) {
    nearest = std::min(nearest, cv::norm(cv::Vec3d(point) - place));
  }
  return nearest;
}

TEST(FusedPart, LosesStraysWhereOthersSeeTheSurface) {
  PartViews views(8, 4, noise);
  for (PointCloud& view : views.clouds) {
    view.fields()["sigma"] = cv::Mat_<float>(view.points().size(), static_cast<float>(noise));
  }
  Fusion const before = fuse(views.clouds);
  // Patches of the first view, whose points come before all others, hover too low to be seen through.
  constexpr double lift = 1.5;
  std::vector<cv::Vec3d> places;
  cv::Mat_<cv::Vec3f>& points = views.clouds[0].points();
  for (int row = 0; row + 3 < points.rows; row += 8) {
    for (int column = 0; column + 3 < points.cols; column += 8) {
      for (int i = 0; i < 9; ++i) {
        cv::Vec3d const x(views.exact[0](row + i / 3, column + i % 3));
        cv::Vec3d const place = views.cam_from_part[0].inverse() * x;
        constexpr double fewest = 3.0; // views, beside edges none of them is disturbed by
        if (x[0] == x[0] && test::isAwayFromEdges(place, 4.0) &&
            views.weightAt(place, test::partNormal(place), 1.0) * noise * noise > fewest - 0.5) {
          cv::Vec3f& point = points(row + i / 3, column + i % 3);
          point = cv::Vec3f(cv::Vec3d(point) * (1.0 - lift / cv::norm(x)));
          places.push_back(place);
        }
      }
    }
  }
  ASSERT_GT(places.size(), 100U);
  Fusion const fusion = fuse(views.clouds);
  EXPECT_GT(fusion.views[0].strays, before.views[0].strays + places.size() / 10);
  for (std::size_t view = 0; view < fusion.views.size(); ++view) {
    EXPECT_LT(before.views[view].strays, before.views[view].points / 200) << view;
    EXPECT_LE(fusion.views[view].outliers, before.views[view].outliers + 5) << "these are no outliers";
  }
  double farthest = 0.0;
  for (cv::Vec3d const& place : places) {
    farthest = std::max(farthest, nearestDistance(fusion.cloud, place));
  }
  EXPECT_LT(farthest, fusion.spacing) << "the other views stand for the places";
  std::size_t left = 0;
  for (cv::Vec3f const& point : fusion.cloud.points()) {
    cv::Vec3d const x(point);
    double const error = sim::distanceToPart(x);
    cv::Vec3d const foot = x - error * test::partNormal(x);
    left += error > 0.5 * lift && test::isAwayFromEdges(foot, 4.0) ? 1 : 0;
  }
  EXPECT_LT(left, places.size() / 20) << "a few with normals that lie wrongly";
}

/// A step of 1 mm along y that a view blurs by a standard deviation of 0.1 across, its grid turned and
/// shifted as the view.
PointCloud stepView(int number) {
  std::mt19937 random(test::seed() + static_cast<unsigned>(number));
  std::normal_distribution<double> error(0.0, 0.01);
  double const angle = 0.4 * number;
  constexpr int side = 100;
  constexpr double spacing = 0.1;
  cv::Mat_<cv::Vec3f> points(side, side);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      double const u = spacing * (column - 0.5 * side) + 0.013 * number;
      double const v = spacing * (row - 0.5 * side) + 0.029 * number;
      double const x = u * std::cos(angle) - v * std::sin(angle);
      double const y = u * std::sin(angle) + v * std::cos(angle);
      double const z = 400.0 + 0.5 * std::erf(x / (0.1 * std::sqrt(2.0))) + error(random);
      points(row, column) = cv::Vec3f(cv::Vec3d(x, y, z));
    }
  }
  return PointCloud(points, true);
}

/// The distance across the step between 16 and 84 % of its height, by the mean heights of narrow strips.
double stepWidth(cv::Mat_<cv::Vec3f> const& points) {
  std::map<int, std::pair<double, int>> strips;
  constexpr double strip = 0.02;
  for (cv::Vec3f const& point : points) {
    if (std::abs(point[1]) < 3.0F) {
      auto& [sum, count] = strips[static_cast<int>(std::floor(static_cast<double>(point[0]) / strip))];
      sum += static_cast<double>(point[2]) - 399.5;
      ++count;
    }
  }
  auto const crossing = [&](double height) {
    double last = std::numeric_limits<double>::quiet_NaN();
    double lastHeight = 0.0;
    for (auto const& [index, sums] : strips) {
      double const x = (index + 0.5) * strip;
      double const mean = sums.first / sums.second;
      if (x > -0.5 && mean >= height) {
        return last + (x - last) * (height - lastHeight) / (mean - lastHeight);
      }
      last = x;
      lastHeight = mean;
    }
    return last;
  };
  return crossing(0.84) - crossing(0.16);
}

TEST(FusedStep, StaysAsSharpAsInOneView) {
  std::vector<PointCloud> views;
  double single = 0.0;
  constexpr int count = 8;
  for (int i = 0; i < count; ++i) {
    views.push_back(stepView(i));
    single += stepWidth(std::as_const(views.back()).points()) / count;
  }
  ASSERT_NEAR(single, 0.2, 0.03);
  EXPECT_LT(stepWidth(fuse(views).cloud.points()), 1.1 * single);
}

PointCloud plate(int side, double x, double z) {
  cv::Mat_<cv::Vec3f> points(side, side);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      points(row, column) = cv::Vec3f(cv::Vec3d(x + 0.1 * column, 0.1 * row, z));
    }
  }
  return PointCloud(points, true);
}

TEST(Fuse, FlagsViewsThatStandAloneOrLieOff) {
  PointCloud off = plate(40, 0.0, 400.12);
  Fusion const fusion = fuse({plate(40, 0.0, 400.0), plate(40, 100.0, 400.0), off});
  EXPECT_EQ(fusion.views[1].overlap, 0.0);
  EXPECT_GT(fusion.views[0].apart, 0.9);
  EXPECT_GT(fusion.views[2].apart, 0.9);
  EXPECT_EQ(figuresOf(fusion.mesh).faultyEdges, 0U);
}

TEST(Fuse, TakesViewsWithoutMeasurableNoise) {
  PointCloud const flat = plate(64, 0.0, 500.0);
  PointCloud coarse = flat.clone(); // depths in whole millimetres
  coarse.points().colRange(32, 64) *= 1.02F;
  PointCloud sure = flat.clone();
  sure.fields()["sigma"] = cv::Mat_<float>(64, 64, 1e-30F);
  PointCloud noisy = flat.clone();
  noisy.fields()["sigma"] = cv::Mat_<float>(64, 64, 0.01F);
  noisy.points() += cv::Scalar(0.0, 0.0, 0.02);
  std::vector<std::vector<PointCloud>> const sets = {{flat},       {flat, flat},  {coarse, coarse},
                                                     {sure, sure}, {flat, noisy}, {noisy, sure}};
  for (std::size_t set = 0; set < sets.size(); ++set) {
    Fusion const fusion = fuse(sets[set]);
    EXPECT_GT(fusion.cloud.pointCount(), 3900U) << set;
    EXPECT_EQ(fusion.views[0].outliers, 0U) << set;
    std::size_t off = 0;
    for (cv::Vec3f const& point : fusion.cloud.points()) {
      bool const isFar = set == 2 && std::abs(point[2] - 510.0F) < 1e-3F;
      off += isFar || std::abs(point[2] - 500.0F) < 1e-3F ? 0 : 1;
    }
    EXPECT_EQ(off, 0U) << "of set " << set;
    for (float const sigma : fusion.cloud.fields().at("sigma")) {
      EXPECT_GT(sigma, 0.0F);
      ASSERT_LT(sigma, 1e-3F) << set;
    }
    for (FusedView const& view : fusion.views) {
      EXPECT_LT(view.rms, 0.03) << set;
    }
  }
}

TEST(Fuse, KeepsHolesUnlessClosingIsAsked) {
  PointCloud view = plate(40, 0.0, 400.0);
  view.state()(cv::Rect(10, 12, 6, 5)).setTo(255);
  MeshFigures const open = figuresOf(fuse({view}).mesh);
  ASSERT_EQ(open.boundaries.size(), 2U);
  FuseSettings settings;
  settings.closeHoles = 5.0; // mm: the hole's rim has less, the plate's four times as much
  Fusion const closed = fuse({view}, settings);
  MeshFigures const figures = figuresOf(closed.mesh);
  EXPECT_EQ(figures.boundaries.size(), 1U);
  EXPECT_EQ(figures.faultyEdges, 0U);
  EXPECT_NEAR(figures.area, 3.9 * 3.9, 1e-3);
}

TEST(Fuse, SaysWhatItCannotFuse) {
  PointCloud const good = plate(20, 0.0, 400.0);
  using test::expectError;
  expectError([] { fuse({}); }, "0 views");
  PointCloud const heap(cv::Mat_<cv::Vec3f>(20, 20, cv::Vec3f(1.0F, 2.0F, 300.0F)), true);
  expectError([&] { fuse({good, heap}); }, "View 1");
  PointCloud bent = good;
  cv::Matx44d twice = cv::Matx44d::eye() * 2.0;
  twice(3, 3) = 1.0;
  bent.setTransform(twice);
  expectError([&] { fuse({good, bent}); }, "no rigid motion");
  cv::Matx44d const columnMajor(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1);
  bent.setTransform(columnMajor);
  expectError([&] { fuse({good, bent}); }, "no rigid motion");
  PointCloud unsure = good;
  unsure.fields()["sigma"] = cv::Mat_<float>(20, 20, 0.0F);
  expectError([&] { fuse({unsure}); }, "sigma of 0");
  FuseSettings settings;
  settings.spacing = -1.0;
  expectError([&] { fuse({good}, settings); }, "spacing is -1");
  PointCloud far = good;
  far.setOffset({4e6, 2e5, 0.0});
  expectError([&] { fuse({good, far}); }, "View 1 has coordinates about (4e+06");
  PointCloud empty = good.clone();
  empty.state().setTo(255);
  expectError([&] { fuse({good, empty}); }, "View 1");
}

} // namespace
} // namespace vorn::mv
