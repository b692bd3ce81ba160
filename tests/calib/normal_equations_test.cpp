// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/normal_equations.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/shape_choice.hpp"
#include "calib/adjustment_rig.hpp"

namespace vorn::mv {
namespace {

using Level = ShapeBasis::Level;

/// A bundle a little beside the truth, with everything free.
Bundle bundleBesideTruth(Level level, bool isRead) {
  test::AdjustmentRig rig;
  rig.halfColumns = 3;
  rig.halfRows = 2;
  Bundle bundle;
  bundle.isRead = isRead;
  bundle.target = rig.dots();
  bundle.extendShape(level);
  for (int i = 0; i < bundle.shape.parameterCount(); ++i) {
    bundle.shapeParameters[i] = 0.05 * std::sin(i);
  }
  bundle.devices = {
      {cameraNumbers(cv::Mat(rig.camera.K), cv::Mat(rig.camera.D)), {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 15}},
      {cameraNumbers(cv::Mat(rig.projector.K), cv::Mat(rig.projector.D)), {0, 3, 4, 8}}};
  bundle.dev0_from_dev1 = Placement::of(rig.cam_from_proj).moved({0.003, -0.002, 0.001}, {0.4, 0.2, -0.3});
  bundle.sigma[0] = 0.1;
  bundle.sigma[1] = 0.04;
  for (cv::Matx44d const& pose : rig.poses(3)) {
    BundleView view;
    view.dev0_from_target = Placement::of(pose);
    for (int i = 0; i < static_cast<int>(bundle.target.size()); ++i) {
      cv::Point2f const dot = bundle.target[static_cast<std::size_t>(i)];
      cv::Vec3d const inCamera = rig.inCamera({dot.x, dot.y}, pose);
      BundleDot seen;
      seen.target = i;
      seen.has0 = isRead || i % 3 != 0;
      seen.has1 = i % 4 != 0;
      seen.point0 = rig.imageOf(rig.camera, inCamera);
      seen.point1 = rig.imageOf(rig.projector, rig.inProjector(inCamera));
      seen.weights[0] = {1 + 0.1 * i, 2 - 0.05 * i};
      seen.weights[1] = {0.5 + 0.2 * i, 1.5};
      view.dots.push_back(seen);
    }
    bundle.views.push_back(view);
  }
  return bundle;
}

/// The bundle with one unknown moved: common ones first, then those of the poses.
Bundle moved(Bundle bundle, int unknown, double step) {
  std::vector<double> steps(static_cast<std::size_t>(bundle.commonCount()) + 18);
  steps[static_cast<std::size_t>(unknown)] = step;
  double const* next = steps.data();
  auto const three = [&next] {
    next += 3;
    return cv::Vec3d(next - 3);
  };
  for (BundleDevice& device : bundle.devices) {
    device.move(next);
    next += device.freeParameters.size();
  }
  cv::Vec3d const turn = three();
  bundle.dev0_from_dev1 = bundle.dev0_from_dev1.moved(turn, three());
  for (int i = 0; i < bundle.shape.parameterCount(); ++i) {
    bundle.shapeParameters[i] += *next++;
  }
  for (BundleView& view : bundle.views) {
    cv::Vec3d const turned = three();
    view.dev0_from_target = view.dev0_from_target.moved(turned, three());
  }
  return bundle;
}

struct NormalEquationsTest : testing::TestWithParam<std::tuple<Level, bool>> {};

TEST_P(NormalEquationsTest, AreThoseOfDifferences) {
  auto const [level, isRead] = GetParam();
  Bundle const bundle = bundleBesideTruth(level, isRead);
  Transfers const transfers = transfersOf(bundle);
  NormalEquations const normal = normalEquationsOf(bundle, transfers);
  int const common = bundle.commonCount();
  int const count = common + 18;
  // Weighted residuals by every unknown, by central differences.
  auto const residuals = [&](Bundle const& b) {
    std::vector<double> values;
    auto const all = residualsOf(b, transfers);
    for (std::size_t i = 0; i < all.size(); ++i) {
      for (std::size_t j = 0; j < all[i].size(); ++j) {
        auto const& weights = b.views[i].dots[j].weights;
        for (int axis : {0, 1}) {
          values.push_back(std::sqrt(weights[0][axis]) * all[i][j].in0[axis] / b.sigma[0]);
          values.push_back(std::sqrt(weights[1][axis]) * all[i][j].in1[axis] / b.sigma[1]);
        }
      }
    }
    for (int i = 0; i < b.shape.parameterCount(); ++i) {
      values.push_back(-std::sqrt(b.shape.priorWeight(i)) * b.shapeParameters[i]);
    }
    return cv::Mat_<double>(cv::Mat(values, true));
  };
  cv::Mat_<double> const here = residuals(bundle);
  cv::Mat_<double> slope(here.rows, count);
  constexpr double step = 1e-5;
  for (int i = 0; i < count; ++i) {
    cv::Mat const difference =
        (residuals(moved(bundle, i, step)) - residuals(moved(bundle, i, -step))) / (-2 * step);
    difference.copyTo(slope.col(i));
  }
  cv::Mat_<double> const products(cv::Mat(slope.t() * slope));
  cv::Mat_<double> const slopes(cv::Mat(slope.t() * here));
  auto const expectNear = [&](double value, int row, int col) {
    double const size = std::sqrt(products(row, row) * products(col, col));
    EXPECT_NEAR(value, products(row, col), 1e-6 * size + 1e-6) << row << ", " << col;
  };
  for (int row = 0; row < common; ++row) {
    double const size = std::sqrt(products(row, row)) * cv::norm(here);
    EXPECT_NEAR(normal.commonSlope[row], slopes(row), 1e-6 * size + 1e-6) << row;
    for (int col = 0; col < common; ++col) {
      expectNear(normal.common(row, col), row, col);
    }
    for (int col = 0; col < 18; ++col) {
      expectNear(normal.mixed[static_cast<std::size_t>(col / 6)](row, col % 6), row, common + col);
    }
  }
  for (int row = 0; row < 18; ++row) {
    auto const view = static_cast<std::size_t>(row / 6);
    double const size = std::sqrt(products(common + row, common + row)) * cv::norm(here);
    EXPECT_NEAR(normal.poseSlope[view][row % 6], slopes(common + row), 1e-6 * size);
    for (int col = 0; col < 6; ++col) {
      expectNear(normal.pose[view](row % 6, col), common + row, common + 6 * (row / 6) + col);
    }
  }
  EXPECT_NEAR(squaresOf(bundle, transfers).total(), here.dot(here), 1e-9 * here.dot(here));
}

INSTANTIATE_TEST_SUITE_P(AllShapes, NormalEquationsTest,
                         testing::Combine(testing::Values(Level::Flat, Level::Quadratic, Level::Smooth,
                                                          Level::Dots),
                                          testing::Bool()));

TEST(NormalEquations, ATransferCarriesErrorsOnTheTarget) {
  Bundle const bundle = bundleBesideTruth(Level::Flat, true);
  Transfers const transfers = transfersOf(bundle);
  // A step on the target moves the images in both devices; one follows from the other.
  Bundle shifted = bundle;
  constexpr float step = 0.01F;
  for (cv::Point2f& dot : shifted.target) {
    dot += cv::Point2f(step, -2 * step);
  }
  auto const before = residualsOf(bundle, {});
  auto const after = residualsOf(shifted, {});
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    for (std::size_t j = 0; j < bundle.views[i].dots.size(); ++j) {
      if (bundle.views[i].dots[j].has1) {
        cv::Vec2d const in0 = after[i][j].in0 - before[i][j].in0;
        cv::Vec2d const in1 = after[i][j].in1 - before[i][j].in1;
        EXPECT_LT(cv::norm(in1 - transfers[i][j] * in0), 2e-3 * cv::norm(in1));
      }
    }
  }
}

TEST(NormalEquations, WhatTheDevicesTakeUpIsTheNumberOfUnknowns) {
  Bundle bundle = bundleBesideTruth(Level::Quadratic, true);
  solveBundle(bundle, 50);
  Transfers const transfers = transfersOf(bundle);
  NormalEquations const whole = normalEquationsOf(bundle, transfers);
  Eigen::MatrixXd const covariance = commonCovarianceOf(whole);
  double taken = 0;
  for (int device : {0, 1}) {
    double const own = parametersTakenBy(whole, covariance, normalEquationsOf(bundle, transfers, device));
    EXPECT_GT(own, 0);
    taken += own;
  }
  EXPECT_NEAR(taken, bundle.commonCount() + 18, 1e-4);
}

TEST(NormalEquations, ChanceIsNotSignificant) {
  // 0.1 % quantiles of F: (5, 1000) 4.139, (40, 500) 1.93.
  EXPECT_FALSE(isSignificant(5 * 4.05, 5, 1000, 1000));
  EXPECT_TRUE(isSignificant(5 * 4.25, 5, 1000, 1000));
  EXPECT_FALSE(isSignificant(40 * 1.87, 40, 500, 500));
  EXPECT_TRUE(isSignificant(40 * 2.0, 40, 500, 500));
  EXPECT_FALSE(isSignificant(-1, 5, 1000, 1000));
}

} // namespace
} // namespace vorn::mv
