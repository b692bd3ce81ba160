// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/find_start.hpp>

#include <cmath>
#include <gtest/gtest.h>
#include <iostream>
#include <opencv2/core.hpp>
#include <random>

#include <vorn/core/system.hpp>
#include <vorn/mv/registration/registration.hpp>

#include "registration/registered_views.hpp"
#include "sim/measured_parts.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

/// A closed body: a ball with waves of random directions and phases on it.
class Body {
public:
  Body(double radius, std::mt19937& random) : radius_(radius) {
    std::normal_distribution<double> direction(0.0, 1.0);
    std::uniform_real_distribution<double> phase(0.0, 2.0 * CV_PI);
    for (int i = 0; i < 6; ++i) {
      waves_.push_back(cv::Vec3d(direction(random), direction(random), direction(random)) * 2.2);
      phases_.push_back(phase(random));
    }
  }
  cv::Vec3d at(cv::Vec3d const& direction) const {
    double share = 1.0;
    for (std::size_t i = 0; i < waves_.size(); ++i) {
      share += 0.05 * std::sin(waves_[i].dot(direction) + phases_[i]);
    }
    return direction * (radius_ * share);
  }

private:
  double radius_;
  std::vector<cv::Vec3d> waves_;
  std::vector<double> phases_;
};

/// A sensor that looks at the body's middle, turned about its line of sight.
cv::Matx44d sensorAt(cv::Vec3d const& direction, double distance, double roll) {
  cv::Vec3d const z = -direction;
  cv::Vec3d const aside = std::abs(z[0]) < 0.9 ? cv::Vec3d(1, 0, 0) : cv::Vec3d(0, 1, 0);
  cv::Vec3d const u = cv::normalize(aside - z * z.dot(aside));
  cv::Vec3d const v = z.cross(u);
  cv::Vec3d const x = u * std::cos(roll) + v * std::sin(roll);
  cv::Vec3d const y = z.cross(x);
  return {x[0], y[0], z[0], direction[0] * distance, x[1], y[1], z[1], direction[1] * distance,
          x[2], y[2], z[2], direction[2] * distance, 0,    0,    0,    1};
}

constexpr double reach = 70.0 * CV_PI / 180.0;

/// What a sensor sees of a body: all within 70 degrees of its direction, in the sensor's frame.
PointCloud viewOf(Body const& body, cv::Matx44d const& sensor, cv::Vec3d const& direction, double sigma,
                  std::mt19937& random) {
  constexpr int count = 12000;
  std::normal_distribution<double> noise(0.0, sigma);
  double const shift = std::uniform_real_distribution<double>(0.0, 1.0)(random);
  std::vector<cv::Vec3f> points;
  for (int i = 0; i < count; ++i) { // Fibonacci's spiral, another one for each view
    double const height = 1.0 - 2.0 * (i + shift) / count;
    double const angle = (i + shift) * CV_PI * (3.0 - std::sqrt(5.0));
    double const across = std::sqrt(1.0 - height * height);
    cv::Vec3d const way(across * std::cos(angle), across * std::sin(angle), height);
    if (way.dot(direction) > std::cos(reach)) {
      cv::Vec3d const error(noise(random), noise(random), noise(random));
      points.emplace_back(movePoint(sensor.inv(), body.at(way) + error));
    }
  }
  return {cv::Mat_<cv::Vec3f>(points, true), false};
}

/// The angle between two views of which 40 % of either is seen in both.
double angleOfOverlap() {
  double low = 0.0;
  double high = 2.0 * reach;
  while (high - low > 1e-3) {
    double const middle = 0.5 * (low + high);
    int one = 0;
    int both = 0;
    for (int i = 0; i < 20000; ++i) {
      double const height = 1.0 - 2.0 * (i + 0.5) / 20000;
      double const angle = i * CV_PI * (3.0 - std::sqrt(5.0));
      double const across = std::sqrt(1.0 - height * height);
      cv::Vec3d const way(across * std::cos(angle), across * std::sin(angle), height);
      bool const isSeen = way[2] > std::cos(reach);
      one += isSeen ? 1 : 0;
      both += isSeen && way.dot({std::sin(middle), 0, std::cos(middle)}) > std::cos(reach) ? 1 : 0;
    }
    (both > 0.4 * one ? low : high) = middle;
  }
  return low;
}

class FindStart : public testing::Test {
protected:
  FindStart() { System::set("EnableDebugMode", false); }
};

TEST_F(FindStart, LeadsToTheMotionOfBodiesSeenFromAnywhere) {
  double const between = angleOfOverlap();
  int right = 0;
  for (unsigned seed = 1; seed <= 3; ++seed) {
    std::mt19937 random(seed);
    // From millimetres to metres.
    double const size = std::pow(10.0, std::uniform_real_distribution<double>(-1.0, 3.0)(random));
    Body const body(size, random);
    std::uniform_real_distribution<double> roll(0.0, 2.0 * CV_PI);
    cv::Vec3d const one(0, 0, 1);
    double const side = roll(random);
    cv::Vec3d const other(std::sin(between) * std::cos(side), std::sin(between) * std::sin(side),
                          std::cos(between));
    cv::Matx44d const sensor = sensorAt(one, 8.0 * size, roll(random));
    cv::Matx44d const otherSensor = sensorAt(other, 8.0 * size, roll(random));
    PointCloud const target = viewOf(body, sensor, one, 1e-3 * size, random);
    PointCloud const source = viewOf(body, otherSensor, other, 1e-3 * size, random);
    StartSearch const start = findStart(source, target);
    RegistrationSettings settings;
    settings.targetFromSource = start.targetFromSource;
    Registration const found = registerClouds(source, target, settings);
    cv::Matx44d const truth = sensor.inv() * otherSensor;
    cv::Vec6d const error = errorOf(found.targetFromSource, truth, {0, 0, 8.0 * size});
    double const turn = cv::norm(cv::Vec3d(error[0], error[1], error[2]));
    double const shift = cv::norm(cv::Vec3d(error[3], error[4], error[5])) / size;
    bool const isRight = start.isFound && turn < 0.01 && shift < 0.01;
    right += isRight ? 1 : 0;
    EXPECT_TRUE(!isRight || start.overlap > start.rivalOverlap);
    if (!isRight) {
      std::cout << "body " << seed << ": turn " << turn << ", shift " << shift << ", overlap "
                << start.overlap << " and " << start.rivalOverlap << '\n';
    }
  }
  EXPECT_EQ(right, 3); // as all ten of the first ten
}

/// How far a motion takes the points of a view from their places, RMS.
double distanceOf(cv::Mat_<cv::Vec3f> const& points, cv::Matx44d const& motion, cv::Matx44d const& truth) {
  double squares = 0.0;
  double count = 0.0;
  for (cv::Vec3f const& point : points) {
    if (std::isfinite(point[0])) {
      cv::Vec4d const place(point[0], point[1], point[2], 1.0);
      cv::Vec4d const way = motion * place - truth * place;
      squares += way.dot(way);
      count += 1.0;
    }
  }
  return std::sqrt(squares / count);
}

TEST_F(FindStart, LaysMadePartsOntoEachOtherThatLieOnEachOtherInManyWays) {
  // Faces slide and turn on faces, with more points on each other than in the right place, which four of ten
  // points share.
  constexpr double overlap = 0.4;
  constexpr int side = 200;
  constexpr double noise = 0.002;
  std::vector<sim::MeasuredPart> const parts = sim::measuredParts();
  for (std::size_t const number : {0U, 1U, 6U, 7U}) {
    std::mt19937 random(501U + static_cast<unsigned>(number));
    sim::PartViews const views = sim::viewsOf(parts[number], overlap, side, noise, random);
    StartSearch const start = findStart(PointCloud(views.source, true), PointCloud(views.target, true));
    EXPECT_TRUE(start.isFound) << parts[number].name;
    EXPECT_LT(start.rivalOverlap, 0.5 * start.overlap) << parts[number].name;
    // Two cells of the sensor: faces lie on each other exactly, their borders to about a cell.
    EXPECT_LT(distanceOf(views.source, start.targetFromSource, views.targetFromSource), 0.03)
        << parts[number].name;
  }
}

TEST_F(FindStart, FindsThePlaceBesideABallThatTurnsOnItself) {
  // A ball on a ball: dozens of places side by side, with more points on each other than the right one, which
  // what is beside the ball tells.
  sim::MeasuredPart const casting = sim::measuredParts()[7];
  std::mt19937 random(8);
  sim::PartViews const views = sim::viewsOf(casting, 0.4, 200, 0.002, random);
  StartSearch const start = findStart(PointCloud(views.source, true), PointCloud(views.target, true));
  EXPECT_TRUE(start.isFound);
  EXPECT_LT(start.rivalOverlap, 0.5 * start.overlap);
  EXPECT_LT(distanceOf(views.source, start.targetFromSource, views.targetFromSource), 0.03);
}

TEST_F(FindStart, BearsPointsThatStrayTowardsTheSensor) {
  std::vector<sim::MeasuredPart> const parts = sim::measuredParts();
  std::mt19937 random(77);
  sim::PartViews views = sim::viewsOf(parts[0], 0.5, 80, 0.002, random);
  // Reflections, much nearer than the part: without the way that a sensor looks it lies as well upside down.
  views.source(40, 40) = {0.1F, 0.1F, 2.0F};
  views.target(37, 43) = {0.1F, 0.1F, 2.0F};
  StartSearch const start = findStart(PointCloud(views.source, true), PointCloud(views.target, true));
  EXPECT_TRUE(start.isFound);
  EXPECT_LT(distanceOf(views.source, start.targetFromSource, views.targetFromSource), 0.3)
      << "it lies some 2 off where it is upside down";
}

TEST_F(FindStart, GivesTheSameBitsWithAnyThreads) {
  std::mt19937 random(3);
  Body const body(20.0, random);
  cv::Vec3d const other(std::sin(0.8), 0, std::cos(0.8));
  PointCloud const target = viewOf(body, sensorAt({0, 0, 1}, 100, 0.3), {0, 0, 1}, 0.02, random);
  PointCloud const source = viewOf(body, sensorAt(other, 100, 2.0), other, 0.02, random);
  StartSettings settings;
  settings.candidates = 3; // as good as all: whether they are the same does not hang on how many they are
  cv::setNumThreads(1);
  cv::Matx44d const one = findStart(source, target, settings).targetFromSource;
  cv::setNumThreads(3);
  EXPECT_EQ(findStart(source, target, settings).targetFromSource, one);
  cv::setNumThreads(-1);
}

TEST_F(FindStart, SaysWhenShapesDoNotTell) {
  std::mt19937 random(5);
  Body const body(20.0, random);
  Body const another(20.0, random);
  PointCloud const target = viewOf(body, sensorAt({0, 0, 1}, 100, 0.0), {0, 0, 1}, 0.02, random);
  // A plane on a body.
  cv::Mat_<cv::Vec3f> plane(60, 60);
  for (int i = 0; i < 60; ++i) {
    for (int j = 0; j < 60; ++j) {
      plane(i, j) = cv::Vec3f(static_cast<float>(j), static_cast<float>(i), 100.0F);
    }
  }
  StartSearch const onBody = findStart(PointCloud(plane, true), target);
  EXPECT_TRUE(!onBody.isFound || onBody.rivalOverlap > 0.8 * onBody.overlap) << onBody.overlap;

  StartSettings settings;
  settings.minOverlap = 0.0;
  expectError([&] { findStart(target, target, settings); }, "minOverlap is 0");
  settings = {};
  settings.candidates = 0;
  expectError([&] { findStart(target, target, settings); }, "candidates is 0");
  cv::Mat_<cv::Vec3f> const tiny(plane * 1e-4);
  expectError([&] { findStart(PointCloud(tiny, true), target); }, "different units");
  expectError([&] { findStart(PointCloud(plane.row(0).clone(), true), target); }, "The source has");
}

} // namespace
} // namespace vorn::mv
