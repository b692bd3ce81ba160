// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/core/observer.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "support/expect_error.hpp"
#include "support/point_sets.hpp"

namespace vorn::mv {
namespace {

constexpr float pitch = 0.1F;
constexpr double degree = 3.14159265358979 / 180.0;

/// A surface z = 500 + 3 sin(0.1 x) cos(0.08 y) on a grid, and its normals by calculus.
struct Waves {
  cv::Mat_<cv::Vec3f> points;
  cv::Mat_<cv::Vec3d> truth;
};

Waves waves(int rows, int columns, float sigma) {
  Waves scene{cv::Mat_<cv::Vec3f>(rows, columns), cv::Mat_<cv::Vec3d>(rows, columns)};
  std::mt19937 random(test::seed());
  std::normal_distribution<float> noise(0.0F, 1.0F);
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      double const x = pitch * static_cast<float>(column);
      double const y = pitch * static_cast<float>(row);
      double const z = 500.0 + 3.0 * std::sin(0.1 * x) * std::cos(0.08 * y);
      scene.points(row, column) =
          cv::Vec3f(cv::Vec3d(x, y, z)) + sigma * cv::Vec3f(noise(random), noise(random), noise(random));
      cv::Vec3d const normal(0.3 * std::cos(0.1 * x) * std::cos(0.08 * y),
                             -0.24 * std::sin(0.1 * x) * std::sin(0.08 * y), -1.0);
      scene.truth(row, column) = normal * (1.0 / cv::norm(normal));
    }
  }
  return scene;
}

/// RMS angle to the truth in degrees, over the points that have a normal.
double rmsAngle(PointCloud const& cloud, cv::Mat_<cv::Vec3d> const& truth) {
  double sum = 0.0;
  double count = 0.0;
  for (int i = 0; i < static_cast<int>(cloud.pointCount()); ++i) {
    cv::Vec3d const normal(cloud.normals()(i));
    if (normal != cv::Vec3d()) {
      double const angle = std::asin(std::min(1.0, cv::norm(normal.cross(truth(i))))) / degree;
      sum += normal.dot(truth(i)) < 0.0 ? 180.0 * 180.0 : angle * angle;
      count += 1.0;
    }
  }
  return std::sqrt(sum / count);
}

/// The normal of the least-squares plane through points, by OpenCV's eigenvectors.
cv::Vec3d planeNormal(std::vector<cv::Vec3f> const& points) {
  cv::Mat_<double> all(static_cast<int>(points.size()), 3);
  for (int i = 0; i < all.rows; ++i) {
    for (int axis = 0; axis < 3; ++axis) {
      all(i, axis) = static_cast<double>(points[static_cast<std::size_t>(i)][axis]);
    }
  }
  cv::PCA const axes(all, cv::noArray(), cv::PCA::DATA_AS_ROW);
  return {axes.eigenvectors.at<double>(2, 0), axes.eigenvectors.at<double>(2, 1),
          axes.eigenvectors.at<double>(2, 2)};
}

TEST(GridNormals, AreAsExactAsTheNoiseOfTheirWindowAllows) {
  // One slope of a window of 13 x 13 cells has sigma 0.02 / (0.1 sqrt(13^2 14)) = 0.236 degrees, two 0.333;
  // the windows at the ends of the grid are smaller.
  Waves const scene = waves(150, 270, 0.02F);
  PointCloud cloud(scene.points, true);
  NormalResult const result = cloud.calcNormals();
  EXPECT_EQ(result.computed, cloud.pointCount());
  EXPECT_EQ(result.missing, 0U);
  EXPECT_LT(rmsAngle(cloud, scene.truth), 0.40);
  EXPECT_GT(rmsAngle(cloud, scene.truth), 0.30);
}

TEST(GridNormals, AreThoseOfAPlaneWhateverIsMissing) {
  std::mt19937 random(test::seed());
  for (double const missing : {0.0, 0.05, 0.4, 0.7}) {
    cv::Mat_<cv::Vec3f> points(70, 150);
    for (int row = 0; row < points.rows; ++row) {
      for (int column = 0; column < points.cols; ++column) {
        auto const x = static_cast<float>(column);
        auto const y = static_cast<float>(row);
        bool const isMissing = std::uniform_real_distribution<>(0.0, 1.0)(random) < missing;
        points(row, column) = {x, y, isMissing ? test::notANumber : 300.0F + 0.5F * x - 0.25F * y};
      }
    }
    PointCloud cloud(points, true);
    cloud.state()(40, 60) = 1;
    cloud.calcNormals();
    cv::Vec3d const expected = cv::Vec3d(0.5, -0.25, -1.0) * (1.0 / std::sqrt(1.3125));
    for (int row = 1; row < points.rows - 1; ++row) {
      for (int column = 1; column < points.cols - 1; ++column) {
        int neighbours = 0;
        for (int i = 0; i < 9; ++i) {
          neighbours += std::isfinite(points(row - 1 + i / 3, column - 1 + i % 3)[2]) ? 1 : 0;
        }
        bool const isPresent = std::isfinite(points(row, column)[2]) && (row != 40 || column != 60);
        if (!isPresent) {
          ASSERT_EQ(cloud.normals()(row, column), cv::Vec3f());
        } else if (neighbours > 5) {
          ASSERT_LT(cv::norm(cv::Vec3d(cloud.normals()(row, column)) - expected), 1e-4)
              << row << " " << column << " missing " << missing;
        }
      }
    }
  }
}

TEST(GridNormals, StopAtStepsInDepth) {
  // Two planes of different slope with a step of a few cells' size between them; some points are missing.
  std::mt19937 random(test::seed());
  cv::Mat_<cv::Vec3f> points(90, 140);
  auto const isFar = [](int row, int column) { return row > 20 && column > 40 + row / 3; };
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      float const x = pitch * static_cast<float>(column);
      float const y = pitch * static_cast<float>(row);
      points(row, column) = {x, y, isFar(row, column) ? 503.0F + 0.2F * x : 500.0F - 0.1F * y};
      if (std::uniform_real_distribution<>(0.0, 1.0)(random) < 0.05) {
        points(row, column)[2] = test::notANumber;
      }
    }
  }
  PointCloud cloud(points, true);
  NormalResult const result = cloud.calcNormals();
  EXPECT_EQ(result.missing + result.computed + static_cast<std::size_t>(cv::countNonZero(cloud.state())),
            cloud.pointCount());
  cv::Vec3d const nearNormal = cv::Vec3d(0.0, -0.1, -1.0) * (1.0 / std::sqrt(1.01));
  cv::Vec3d const farNormal = cv::Vec3d(0.2, 0.0, -1.0) * (1.0 / std::sqrt(1.04));
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      cv::Vec3d const normal(cloud.normals()(row, column));
      if (normal != cv::Vec3d()) {
        ASSERT_LT(cv::norm(normal - (isFar(row, column) ? farNormal : nearNormal)), 1e-3)
            << row << " " << column;
      }
    }
  }
}

TEST(GridNormals, LeaveLonelyPointsOut) {
  Waves const scene = waves(60, 60, 0.0F);
  cv::Mat_<cv::Vec3f> points = scene.points.clone();
  points(30, 30)[2] += 8.0F;
  PointCloud cloud(points, true);
  EXPECT_EQ(cloud.calcNormals().missing, 1U);
  EXPECT_EQ(cloud.normals()(30, 30), cv::Vec3f());
  // Windows cut by the end of the grid see the curvature from one side; the point would add degrees.
  EXPECT_LT(rmsAngle(cloud, scene.truth), 0.1);
}

TEST(GridNormals, SayHowWellPlanesFit) {
  Waves const scene = waves(60, 200, 0.02F);
  PointCloud cloud(scene.points, true);
  NormalSettings settings;
  settings.windowRadius = 3;
  settings.figures = NormalFigures::FitAndCurvature;
  NormalResult const result = cloud.calcNormals(settings);
  // 46 of 49 degrees of freedom are left; the noise off the plane is the same in all directions.
  EXPECT_NEAR(cv::mean(result.fitError)[0], 0.02 * std::sqrt(46.0 / 49.0), 0.0005);
  // The scatter in the plane is (h^2 + sigma^2 / 4) 4 per axis, two of them.
  EXPECT_NEAR(cv::mean(result.curvature)[0], 0.02 * 0.02 / (2.0 * 4.0 * pitch * pitch), 0.0006);
}

TEST(GridNormals, AreTheSameInAnyUnitAndWithAnyThreads) {
  Waves const scene = waves(70, 150, 0.02F);
  PointCloud cloud(scene.points, true);
  cloud.calcNormals();
  PointCloud scaled(cv::Mat_<cv::Vec3f>(scene.points * 1024.0F), true);
  cv::setNumThreads(1);
  scaled.calcNormals();
  cv::setNumThreads(-1);
  EXPECT_EQ(cv::norm(cloud.normals(), scaled.normals(), cv::NORM_INF), 0.0);
}

TEST(NeighbourNormals, AreThePlanesOfTheNearestPoints) {
  for (test::NamedPoints const& set : test::difficultPointSets()) {
    cv::Mat_<cv::Vec3f> const points = test::asGrid(set.points, 1);
    PointCloud cloud(points, false);
    cloud.state()(0) = 1;
    NormalSettings settings;
    settings.neighbourCount = 12;
    settings.orientation = NormalOrientation::TowardsViewpoint;
    settings.figures = NormalFigures::FitAndCurvature;
    NormalResult const result = cloud.calcNormals(settings);
    EXPECT_EQ(result.computed + result.missing, cloud.pointCount() - 1) << set.name;
    for (int i = 1; i < points.rows; i += 37) {
      std::vector<std::pair<float, int>> order;
      for (int j = 1; j < points.rows; ++j) {
        cv::Vec3f const difference = points(j) - points(i);
        order.emplace_back(difference.dot(difference), j);
      }
      std::sort(order.begin(), order.end());
      std::vector<cv::Vec3f> nearest;
      for (auto const& [square, j] : order) {
        if (nearest.size() < 12 || square <= order[11].first) {
          nearest.push_back(points(j));
        }
      }
      // Only where one plane stands out is its normal defined.
      if (result.curvature(i) < 0.2F && result.curvature(i) > 1e-9F && set.name != "huge offset") {
        cv::Vec3d const normal(cloud.normals()(i));
        ASSERT_LT(cv::norm(normal.cross(planeNormal(nearest))), 1e-3) << set.name << " " << i;
        ASSERT_LE(normal.dot(cv::Vec3d(points(i))), 0.0) << set.name;
      }
    }
  }
}

TEST(NeighbourNormals, PointOutOfABodyAndAgreeOnASheet) {
  // A torus: neighbours decide, for it has no single middle that all its normals point away from.
  std::vector<cv::Vec3f> ring;
  std::vector<cv::Vec3d> truth;
  for (int i = 0; i < 120; ++i) {
    for (int j = 0; j < 40; ++j) {
      double const a = 2.0 * CV_PI * i / 120.0;
      double const b = 2.0 * CV_PI * j / 40.0;
      cv::Vec3d const out(std::cos(a) * std::cos(b), std::sin(a) * std::cos(b), std::sin(b));
      truth.push_back(out);
      ring.emplace_back(cv::Vec3d(30.0 * std::cos(a), 30.0 * std::sin(a), 400.0) + 10.0 * out);
    }
  }
  PointCloud body(test::asGrid(ring, 1), false);
  EXPECT_EQ(body.calcNormals().missing, 0U);
  for (int i = 0; i < static_cast<int>(ring.size()); ++i) {
    ASSERT_GT(cv::Vec3d(body.normals()(i)).dot(truth[static_cast<std::size_t>(i)]), 0.95) << i;
  }
  Waves const scene = waves(60, 60, 0.0F);
  PointCloud sheet(scene.points, false);
  sheet.calcNormals();
  EXPECT_LT(rmsAngle(sheet, scene.truth), 0.5) << "turned to the viewpoint";
}

TEST(NeighbourNormals, TakeThoseWithinARadius) {
  Waves const scene = waves(40, 40, 0.0F);
  PointCloud cloud(scene.points, false);
  NormalSettings settings;
  settings.radius = 0.35F;
  EXPECT_EQ(cloud.calcNormals(settings).missing, 0U);
  EXPECT_LT(rmsAngle(cloud, scene.truth), 0.6);
  settings.radius = 0.05F;
  EXPECT_EQ(cloud.calcNormals(settings).computed, 0U) << "no neighbours";
}

TEST(Normals, RefuseSettingsOutsideTheirRangeAndChangeNothing) {
  PointCloud cloud(waves(20, 20, 0.0F).points, true);
  cloud.calcNormals();
  cv::Mat_<cv::Vec3f> const before = cloud.normals().clone();
  NormalSettings settings;
  settings.windowRadius = 32;
  test::expectError([&] { cloud.calcNormals(settings); }, "windowRadius is 32, not 1 .. 31");
  settings = {};
  settings.neighbourCount = 2;
  test::expectError([&] { cloud.calcNormals(settings); }, "neighbourCount is 2");
  settings = {};
  settings.radius = -1.0F;
  test::expectError([&] { cloud.calcNormals(settings); }, "radius is -1");
  EXPECT_EQ(cv::norm(cloud.normals(), before, cv::NORM_INF), 0.0);
  class Stop : public Observer {
    bool onProgress(std::string_view /*stage*/, double /*fraction*/) override { return false; }
  } stop;
  EXPECT_THROW(cloud.calcNormals({}, &stop), Cancelled);
  PointCloud empty;
  EXPECT_EQ(empty.calcNormals().computed, 0U);
}

/// A tilted plane with a hole, a step down the middle and a rough patch.
PointCloud inspected() {
  cv::Mat_<cv::Vec3f> points(40, 60);
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      auto const x = static_cast<float>(column);
      auto const y = static_cast<float>(row);
      bool const isRough = row >= 25 && row < 32 && column >= 40 && column < 50;
      // A ripple of a regular fit error everywhere, ten times as high in the patch.
      float const ripple = ((row + column) % 2 == 0 ? 0.05F : -0.05F) * (isRough ? 10.0F : 1.0F);
      points(row, column) = {x, y, 100.0F + 0.3F * x + (column >= 30 ? 20.0F : 0.0F) + ripple};
    }
  }
  PointCloud cloud(points, true);
  cloud.state()(10, 10) = 1;
  cloud.points()(20, 50)[1] = test::notANumber;
  return cloud;
}

int kindAt(PointCloud const& cloud, int row, int column) {
  return cloud.auxMask()(row, column);
}

TEST(ValidMap, NamesBordersStepsAndWeakFits) {
  PointCloud cloud = inspected();
  EXPECT_TRUE(cloud.auxMask().empty());
  cloud.calcValidMap();
  EXPECT_EQ(kindAt(cloud, 10, 10), int(PointKind::Absent));
  EXPECT_EQ(kindAt(cloud, 20, 50), int(PointKind::Absent));
  EXPECT_EQ(kindAt(cloud, 11, 11), int(PointKind::Border));
  EXPECT_EQ(kindAt(cloud, 0, 5), int(PointKind::Border));
  EXPECT_EQ(kindAt(cloud, 15, 59), int(PointKind::Border));
  EXPECT_EQ(kindAt(cloud, 15, 29), int(PointKind::Step));
  EXPECT_EQ(kindAt(cloud, 15, 30), int(PointKind::Step));
  EXPECT_EQ(kindAt(cloud, 28, 45), int(PointKind::WeakFit));
  EXPECT_EQ(kindAt(cloud, 12, 12), int(PointKind::Inner));
  EXPECT_EQ(kindAt(cloud, 15, 31), int(PointKind::Inner));
  EXPECT_EQ(cv::countNonZero(cloud.state()), 1) << "states are not touched";
}

TEST(ValidMap, RegistrationKeepsAwayFromBordersAndSteps) {
  PointCloud cloud = inspected();
  cloud.icpRemoveBoder(3);
  EXPECT_EQ(kindAt(cloud, 13, 13), int(PointKind::RegistrationBorder));
  EXPECT_EQ(kindAt(cloud, 14, 14), int(PointKind::Inner));
  EXPECT_EQ(kindAt(cloud, 2, 15), int(PointKind::RegistrationBorder));
  EXPECT_EQ(kindAt(cloud, 3, 15), int(PointKind::Inner));
  EXPECT_EQ(kindAt(cloud, 15, 27), int(PointKind::RegistrationBorder));
  EXPECT_EQ(kindAt(cloud, 15, 26), int(PointKind::Inner));
  EXPECT_EQ(kindAt(cloud, 15, 33), int(PointKind::Inner));
  EXPECT_EQ(kindAt(cloud, 10, 10), int(PointKind::Absent));
  test::expectError([&] { cloud.icpRemoveBoder(-1); }, "border is -1");
}

TEST(Fields, BelongToTheCloud) {
  PointCloud cloud(waves(8, 9, 0.0F).points, true);
  cloud.fields()["sigma"] = cv::Mat_<float>(8, 9, 0.5F);
  PointCloud const copy = cloud;
  EXPECT_EQ(copy.fields().at("sigma")(3, 3), 0.5F);
  cloud.fields()["modulation"] = cv::Mat_<float>(8, 8, 0.5F);
  test::expectError([&] { cloud.checkSizes(); }, "field modulation has another size");
}

} // namespace
} // namespace vorn::mv
