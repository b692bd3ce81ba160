// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/hand_eye.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "geometry/rotation_vector.hpp"

namespace vorn::mv::math {
namespace {

using Mount = HandEyeSettings::Mount;

cv::Matx44d transformOf(cv::Vec3d const& turn, cv::Vec3d const& shift) {
  cv::Matx33d R;
  cv::Rodrigues(turn, R);
  return createTransform(R, shift);
}

/// A robot with a camera on its hand or beside it, millimetres.
struct Robot {
  cv::Matx44d camFromHand = transformOf({0.3, -0.2, 1.4}, {30, -40, 120});
  cv::Matx44d baseFromTarget = transformOf({2.9, 0.4, -0.2}, {700, 100, -50});
  Mount mount = Mount::OnHand;
  double turnNoise = 0;  ///< radians, one coordinate
  double shiftNoise = 0; ///< mm, one coordinate

  std::vector<cv::Matx44d> hand;
  std::vector<cv::Matx44d> target;

  /// Poses with turns up to `turn` radians about the given share of each axis.
  void move(int count, double turn, cv::RNG& rng, cv::Vec3d const& axes = {1, 1, 1}) {
    for (int i = 0; i < count; ++i) {
      cv::Vec3d const around(axes[0] * rng.uniform(-turn, turn), axes[1] * rng.uniform(-turn, turn),
                             axes[2] * rng.uniform(-turn, turn));
      hand.push_back(transformOf(around, {rng.uniform(200.0, 600.0), rng.uniform(-300.0, 300.0),
                                          rng.uniform(300.0, 700.0)}) *
                     transformOf({3, 0.1, 0.2}, {0, 0, 0}));
      cv::Matx44d const moved = mount == Mount::OnHand ? cv::Matx44d(hand.back().inv()) : hand.back();
      cv::Matx44d seen = camFromHand * moved * baseFromTarget;
      auto const scatter = [&](double sigma) {
        return cv::Vec3d(rng.gaussian(sigma), rng.gaussian(sigma), rng.gaussian(sigma));
      };
      cv::Vec3d const turned = scatter(turnNoise);
      cv::Vec3d const shifted = scatter(shiftNoise);
      cv::Matx44d const turnedBy = transformOf(turned, {});
      seen = createTransform(getR3(turnedBy) * getR3(seen), getT3(seen) + shifted);
      target.push_back(seen);
    }
  }

  HandEye calibrated() const {
    HandEyeSettings settings;
    settings.mount = mount;
    return handEyeCalib(hand, target, settings);
  }
};

double turnBetween(cv::Matx44d const& a, cv::Matx44d const& b) {
  return cv::norm(rotationVector(getR3(a) * getR3(b).t()));
}
double shiftBetween(cv::Matx44d const& a, cv::Matx44d const& b) {
  return cv::norm(getT3(a) - getT3(b));
}

TEST(HandEyeCalib, FindsAnExactRobot) {
  cv::RNG rng(2);
  for (Mount const mount : {Mount::OnHand, Mount::BesideRobot}) {
    for (double turn : {0.1, 0.6, 3.0}) {
      Robot robot;
      robot.mount = mount;
      robot.move(8, turn, rng);
      HandEye const found = robot.calibrated();
      bool const isOnHand = mount == Mount::OnHand;
      cv::Matx44d const x = isOnHand ? found.camFromHand : found.camFromBase;
      cv::Matx44d const z = isOnHand ? found.baseFromTarget : found.handFromTarget;
      EXPECT_LT(turnBetween(x, robot.camFromHand), 1e-9);
      EXPECT_LT(shiftBetween(x, robot.camFromHand), 1e-6);
      EXPECT_LT(turnBetween(z, robot.baseFromTarget), 1e-9);
      EXPECT_LT(shiftBetween(z, robot.baseFromTarget), 1e-6);
      EXPECT_EQ(isOnHand ? found.camFromBase : found.camFromHand, cv::Matx44d::eye());
      EXPECT_LT(found.turnRms, 1e-9);
      EXPECT_LT(found.shiftRms, 1e-6);
    }
  }
}

/// The mean squared errors of turn and shift over some robots.
struct Errors {
  double turn = 0;
  double shift = 0;
};

TEST(HandEyeCalib, IsAtLeastAsExactAsTheBestOfOpenCVsMethods) {
  constexpr int runs = 40;
  std::vector<cv::HandEyeCalibrationMethod> const methods{
      cv::CALIB_HAND_EYE_TSAI, cv::CALIB_HAND_EYE_PARK, cv::CALIB_HAND_EYE_HORAUD, cv::CALIB_HAND_EYE_ANDREFF,
      cv::CALIB_HAND_EYE_DANIILIDIS};
  for (double noise : {0.1, 1.0, 5.0}) {
    cv::RNG rng(11);
    Errors own;
    std::vector<Errors> others(methods.size());
    for (int run = 0; run < runs; ++run) {
      Robot robot;
      robot.turnNoise = 1e-3 * noise;
      robot.shiftNoise = 0.2 * noise;
      robot.move(12, 0.6, rng);
      HandEye const found = robot.calibrated();
      own.turn += std::pow(turnBetween(found.camFromHand, robot.camFromHand), 2);
      own.shift += std::pow(shiftBetween(found.camFromHand.inv(), robot.camFromHand.inv()), 2);
      std::vector<cv::Mat> handR, handT, targetR, targetT;
      for (std::size_t i = 0; i < robot.hand.size(); ++i) {
        handR.emplace_back(cv::Mat(getR3(robot.hand[i])).clone());
        handT.emplace_back(cv::Mat(getT3(robot.hand[i])).clone());
        targetR.emplace_back(cv::Mat(getR3(robot.target[i])).clone());
        targetT.emplace_back(cv::Mat(getT3(robot.target[i])).clone());
      }
      for (std::size_t m = 0; m < methods.size(); ++m) {
        cv::Matx33d R;
        cv::Vec3d t;
        cv::calibrateHandEye(handR, handT, targetR, targetT, R, t, methods[m]);
        cv::Matx44d const handFromCam = createTransform(R, t);
        others[m].turn += std::pow(turnBetween(handFromCam.inv(), robot.camFromHand), 2);
        others[m].shift += std::pow(shiftBetween(handFromCam, robot.camFromHand.inv()), 2);
      }
    }
    for (std::size_t m = 0; m < methods.size(); ++m) {
      EXPECT_LT(own.turn, 1.001 * others[m].turn) << "method " << m << ", noise " << noise;
      EXPECT_LT(own.shift, 1.001 * others[m].shift) << "method " << m << ", noise " << noise;
    }
  }
}

TEST(HandEyeCalib, KnowsItsErrors) {
  cv::RNG rng(5);
  constexpr int runs = 60;
  double squares = 0;
  for (int run = 0; run < runs; ++run) {
    Robot robot;
    robot.turnNoise = 1e-3;
    robot.shiftNoise = 0.3;
    robot.move(20, 0.8, rng);
    HandEye const found = robot.calibrated();
    cv::Mat_<double> errors(12, 1);
    auto const fill = [&](int row, cv::Matx44d const& a, cv::Matx44d const& truth) {
      cv::Mat(rotationVector(getR3(a) * getR3(truth).t())).copyTo(errors.rowRange(row, row + 3));
      cv::Mat(getT3(a) - getT3(truth)).copyTo(errors.rowRange(row + 3, row + 6));
    };
    fill(0, found.camFromHand, robot.camFromHand);
    fill(6, found.baseFromTarget, robot.baseFromTarget);
    cv::Mat solution;
    cv::solve(found.covariance, errors, solution, cv::DECOMP_SVD);
    squares += errors.dot(solution) / (12 * runs);
  }
  // Of 12 numbers in 60 runs, a standard deviation of 0.053; the scatter itself is known to 9 % a run.
  EXPECT_NEAR(squares, 1, 0.2);
}

TEST(HandEyeCalib, SaysWhatDeterminesNothing) {
  auto const failure = [](Robot const& robot) {
    try {
      (void)robot.calibrated();
    } catch (Exception const& e) {
      return e.message();
    }
    return std::string("no exception");
  };
  auto const holds = [](std::string const& text, char const* part) {
    return text.find(part) != std::string::npos;
  };
  cv::RNG rng(7);
  Robot few;
  few.move(5, 0.5, rng);
  EXPECT_TRUE(holds(failure(few), "at least 6")) << failure(few);
  Robot parallel;
  parallel.turnNoise = 1e-4;
  parallel.move(10, 0.6, rng, {0, 0, 1});
  EXPECT_TRUE(holds(failure(parallel), "all about one axis")) << failure(parallel);
  Robot still;
  still.move(10, 0.01, rng);
  EXPECT_TRUE(holds(failure(still), "turns too little")) << failure(still);
  Robot skewed;
  skewed.move(7, 0.5, rng);
  skewed.hand[3](0, 0) += 0.1;
  EXPECT_TRUE(holds(failure(skewed), "Hand pose 3 is no rigid transform")) << failure(skewed);
  Robot broken;
  broken.move(7, 0.5, rng);
  broken.target[6](0, 3) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(holds(failure(broken), "Target pose 6 is no rigid transform")) << failure(broken);
  Robot unequal;
  unequal.move(8, 0.5, rng);
  unequal.target.pop_back();
  EXPECT_TRUE(holds(failure(unequal), "8 poses of the hand and 7 of the target")) << failure(unequal);
  HandEyeSettings settings;
  settings.leastTurn = 0;
  EXPECT_THROW((void)handEyeCalib(skewed.hand, skewed.target, settings), Exception);
}

} // namespace
} // namespace vorn::mv::math
