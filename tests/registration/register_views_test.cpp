// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/register_views.hpp>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <random>

#include <vorn/core/system.hpp>

#include "registration/registered_views.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

constexpr double sigma = 0.02;

/// A bumpy column of radius 25 about z, by angle and height.
cv::Vec3d column(double angle, double z) {
  double const radius =
      25.0 + 1.2 * std::sin(3.0 * angle + 0.4 * z) + 0.8 * std::cos(0.9 * z) * std::sin(5.0 * angle);
  return {radius * std::cos(angle), radius * std::sin(angle), z};
}

/// A sensor that looks at the z axis from 200 away.
cv::Matx44d sensorAt(double angle) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  return {-s, 0, -c, 200 * c, c, 0, -s, 200 * s, 0, -1, 0, 6, 0, 0, 0, 1};
}

/// The column as sensors on a turntable see it, each in its own frame.
class Turntable {
public:
  /// @param angles in degrees
  Turntable(std::vector<double> const& angles, unsigned seed) : random_(seed) {
    std::normal_distribution<double> noise(0.0, sigma);
    for (double const degrees : angles) {
      double const angle = degrees * CV_PI / 180.0;
      truth.push_back(sensorAt(angle));
      cv::Mat_<cv::Vec3f> points(50, 110);
      for (int row = 0; row < points.rows; ++row) {
        for (int col = 0; col < points.cols; ++col) {
          constexpr double reach = 50.0 * CV_PI / 180.0;
          cv::Vec3d const error(noise(random_), noise(random_), noise(random_));
          points(row, col) =
              movePoint(truth.back().inv(), column(angle + reach * (col / 54.5 - 1.0), 0.25 * row) + error);
        }
      }
      clouds.emplace_back(points, true);
      std::uniform_real_distribution<double> off(-0.3, 0.3);
      auto const any = [&] { return cv::Vec3d(off(random_), off(random_), off(random_)); };
      starts.push_back(clouds.size() == 1 ? truth.back()
                                          : motionAbout({0, 0, 6}, any(), any()) * truth.back());
    }
  }

  /// RMS distance of the views' middles of surface from where they belong.
  double errorOfPlaces(std::vector<cv::Matx44d> const& places) const {
    double squares = 0.0;
    for (std::size_t i = 0; i < places.size(); ++i) {
      cv::Vec3d const middle(0, 0, 175);
      cv::Vec3d const error = movePoint(places[i], middle) - movePoint(truth[i], middle);
      squares += error.dot(error) / static_cast<double>(places.size());
    }
    return std::sqrt(squares);
  }

  std::vector<PointCloud> clouds;
  std::vector<cv::Matx44d> truth;
  std::vector<cv::Matx44d> starts;

private:
  std::mt19937 random_;
};

std::vector<cv::Matx44d> placesOf(ViewsRegistration const& found) {
  std::vector<cv::Matx44d> places;
  for (RegisteredView const& view : found.views) {
    places.push_back(view.frameFromView);
  }
  return places;
}

/// Each view laid onto the one before.
std::vector<cv::Matx44d> chained(Turntable const& table) {
  std::vector<cv::Matx44d> places{table.starts[0]};
  for (std::size_t i = 1; i < table.clouds.size(); ++i) {
    RegistrationSettings settings;
    settings.targetFromSource = table.starts[i - 1].inv() * table.starts[i];
    Registration const found = registerClouds(table.clouds[i], table.clouds[i - 1], settings);
    places.push_back(places.back() * found.targetFromSource);
  }
  return places;
}

std::vector<double> const eight = {0, 45, 90, 135, 180, 225, 270, 315};

class RegisterViews : public testing::Test {
protected:
  RegisterViews() { System::set("EnableDebugMode", false); }
};

TEST_F(RegisterViews, CloseALoopThatChainingLeavesOpen) {
  double joint = 0.0;
  double chain = 0.0;
  for (unsigned seed = 1; seed <= 2; ++seed) {
    Turntable const table(eight, seed);
    ViewsSettings settings;
    settings.frameFromView = table.starts;
    ViewsRegistration const found = registerViews(table.clouds, settings);
    EXPECT_EQ(found.stop, RegistrationStop::Converged);
    EXPECT_TRUE(found.isConnected());
    EXPECT_EQ(found.pairs.size(), 16U) << "neighbours, and the next ones, which share a tenth";
    EXPECT_EQ(found.views[0].frameFromView, table.truth[0]);
    for (std::size_t i = 1; i < eight.size(); ++i) {
      RegisteredView const& view = found.views[i];
      EXPECT_TRUE(view.freeMotions.empty());
      cv::Vec6d const error = errorOf(view.frameFromView, table.truth[i], found.pivot);
      for (int k = 0; k < 6; ++k) {
        EXPECT_LT(std::abs(error[k]), 5.0 * std::sqrt(view.covariance(k, k))) << i << ' ' << k;
      }
      EXPECT_LT(std::sqrt(view.covariance(3, 3)), 0.02) << "the bound means something";
      // Interpolating a grid takes a fifth of its noise's variance.
      EXPECT_NEAR(view.rms, sigma * std::sqrt(1.8), 0.15 * sigma);
    }
    joint += table.errorOfPlaces(placesOf(found));
    chain += table.errorOfPlaces(chained(table));
  }
  // Deviations of a closed loop against those of a chain, in theory 0.61.
  EXPECT_LT(joint, 0.8 * chain);
  EXPECT_LT(joint / 2.0, 0.02);
}

TEST_F(RegisterViews, GiveTheSameBitsWithAnyThreads) {
  Turntable const table({0, 40, 80}, 3);
  ViewsSettings settings;
  settings.frameFromView = table.starts;
  std::vector<std::vector<cv::Matx44d>> places;
  for (int const threads : {1, 3}) {
    cv::setNumThreads(threads);
    places.push_back(placesOf(registerViews(table.clouds, settings)));
  }
  cv::setNumThreads(-1);
  EXPECT_EQ(places[0], places[1]);
}

TEST_F(RegisterViews, SayWhichViewsNothingJoins) {
  Turntable const table({0, 40, 180, 220}, 4);
  ViewsSettings settings;
  settings.frameFromView = table.starts;
  settings.fixedView = 3;
  ViewsRegistration const found = registerViews(table.clouds, settings);
  EXPECT_FALSE(found.isConnected());
  EXPECT_EQ(found.groups, (std::vector<std::vector<std::size_t>>{{0, 1}, {2, 3}}));
  EXPECT_EQ(found.views[0].frameFromView, table.starts[0]);
  EXPECT_EQ(found.views[3].frameFromView, table.starts[3]);
  EXPECT_EQ(found.views[2].group, 1U);
  // Within a group the views fit all the same.
  cv::Matx44d const between = table.truth[3].inv() * table.truth[2];
  EXPECT_LT(cv::norm(errorOf(found.views[3].frameFromView.inv() * found.views[2].frameFromView, between,
                             {0, 0, 175})),
            0.02);

  settings.frameFromView[1] = motionAbout({}, {}, {900, 0, 0}) * table.starts[1];
  settings.frameFromView.resize(2);
  settings.fixedView = 0;
  ViewsRegistration const nothing = registerViews({table.clouds[0], table.clouds[1]}, settings);
  EXPECT_EQ(nothing.stop, RegistrationStop::NoOverlap);
  EXPECT_EQ(nothing.groups.size(), 2U);
  EXPECT_EQ(nothing.views[1].frameFromView, settings.frameFromView[1]);
}

TEST_F(RegisterViews, NameWhatAViewIsNotHeldBy) {
  // A plane beside bumps: the third view sees nothing but the plane.
  auto const part = [](double u, double v) { return u < 8.0 ? bumps(u, v) : cv::Vec3d(u, v, 400.0); };
  std::vector<PointCloud> views;
  views.emplace_back(view(part, 140, 0.0, 0.0, 0.01, 1), true);
  views.emplace_back(view(part, 140, 2.0, 0.1, 0.01, 2), true);
  views.emplace_back(view(part, 60, 9.0, 3.0, 0.01, 3), true);
  ViewsRegistration const found = registerViews(views);
  EXPECT_TRUE(found.isConnected());
  EXPECT_EQ(found.views[1].freeMotions.size(), 0U);
  ASSERT_EQ(found.views[2].freeMotions.size(), 3U);
  int turns = 0;
  for (FreeMotion const& motion : found.views[2].freeMotions) {
    bool const isTurn = motion.kind == FreeMotion::Kind::Rotation;
    turns += isTurn ? 1 : 0;
    EXPECT_NEAR(std::abs(motion.axis[2]), isTurn ? 1.0 : 0.0, 0.02);
  }
  EXPECT_EQ(turns, 1);
}

TEST_F(RegisterViews, RefuseWhatCannotBe) {
  Turntable const table({0, 40}, 5);
  expectError([&] { registerViews({table.clouds[0]}); }, "The number of views is 1, not 2 or more");
  ViewsSettings settings;
  settings.frameFromView = {cv::Matx44d::eye()};
  expectError([&] { registerViews(table.clouds, settings); }, "frameFromView is 1");
  settings.frameFromView = {cv::Matx44d::eye(), cv::Matx44d::diag({1, 1, -1, 1})};
  expectError([&] { registerViews(table.clouds, settings); }, "frameFromView of view 1 is no rigid motion");
  settings = {};
  settings.fixedView = 2;
  expectError([&] { registerViews(table.clouds, settings); }, "fixedView is 2");
  cv::Mat_<cv::Vec3f> const small(table.clouds[0].points() * 0.001);
  expectError([&] { registerViews({table.clouds[1], PointCloud(small, true)}); }, "different units");
  expectError(
      [&] {
        registerViews({table.clouds[1], PointCloud(small.rowRange(0, 1), true)});
      },
      "View 1 has");
  PointCloud far = table.clouds[0];
  far.setOffset({4e6, 2e5, 0.0});
  expectError([&] { registerViews({far, table.clouds[1]}); }, "View 0 has coordinates about (4e+06");
}

} // namespace
} // namespace vorn::mv
