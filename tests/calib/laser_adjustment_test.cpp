// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/laser_adjustment.hpp>

#include <cmath>
#include <functional>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/core/library.hpp>

#include "calib/adjustment_rig.hpp"
#include "calib/shared_errors.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;

struct TrueLaser {
  cv::Vec3d normal;
  double distance;
};

/// A camera and two lasers before a target.
struct LaserAdjustmentTest : testing::Test {
  LaserAdjustmentTest() {
    Library::init();
    rig.cameraNoise = 0.01;
    lasers = {{cv::normalize(cv::Vec3d(0.05, 0.9, 0.45)), 230},
              {cv::normalize(cv::Vec3d(0.95, -0.1, -0.4)), -205}};
  }

  /// Where a laser's line lies in the image of a pose, every third of a millimetre of the target's height
  /// along it.
  std::vector<cv::Point2f> lineOf(TrueLaser const& laser, cv::Matx44d const& pose, cv::RNG& rng) const {
    cv::Matx33d const R = math::getR3(pose);
    cv::Vec3d const n = R.t() * laser.normal;
    double const d = laser.distance - laser.normal.dot(math::getT3(pose));
    std::vector<cv::Point2f> line;
    bool const isUpright = std::abs(n[0]) > std::abs(n[1]);
    for (double along = -95; along <= 95; along += 1) {
      double across = (d - n[isUpright ? 1 : 0] * along) / n[isUpright ? 0 : 1];
      cv::Vec2d place = isUpright ? cv::Vec2d(across, along) : cv::Vec2d(along, across);
      for (int round = 0; round < 8; ++round) { // of a bent target
        double const height = rig.deviation(place)[2];
        across = (d - n[2] * height - n[isUpright ? 1 : 0] * along) / n[isUpright ? 0 : 1];
        place = isUpright ? cv::Vec2d(across, along) : cv::Vec2d(along, across);
      }
      bool const isOnTarget =
          std::abs(place[0]) < rig.pitch * rig.halfColumns && std::abs(place[1]) < rig.pitch * rig.halfRows;
      cv::Vec2d const pixel = AdjustmentRig::imageOf(rig.camera, rig.inCamera(place, pose));
      if (isOnTarget && AdjustmentRig::isInside(rig.camera, pixel)) {
        line.emplace_back(
            cv::Point2d(pixel[0] + rng.gaussian(lineNoise), pixel[1] + rng.gaussian(lineNoise)));
      }
    }
    return line;
  }

  std::vector<LaserAdjustmentView> views(int count, std::uint64_t seed) const {
    cv::RNG rng(seed);
    std::vector<LaserAdjustmentView> result;
    for (cv::Matx44d const& pose : AdjustmentRig::poses(count)) {
      LaserAdjustmentView view;
      view.dots = rig.view(pose, rng);
      view.dots.points1.clear();
      view.dots.name = "pose_" + std::to_string(result.size());
      for (TrueLaser const& laser : lasers) {
        view.lines.push_back(lineOf(laser, pose, rng));
      }
      result.push_back(view);
    }
    return result;
  }

  LaserAdjustment adjusted(std::vector<LaserAdjustmentView> const& given,
                           AdjustmentSettings const& settings = {}) const {
    return adjustLasers(given, AdjustmentRig::sizeOf(rig.camera), settings);
  }

  /// Root mean square of how far a found plane lies off the true one, over its lines.
  double errorOf(AdjustedPlane const& found, TrueLaser const& laser) const {
    cv::RNG rng(3);
    AdjustmentRig exact = rig;
    double squares = 0;
    int count = 0;
    for (cv::Matx44d const& pose : AdjustmentRig::poses(8)) {
      for (double along = -90; along <= 90; along += 10) {
        cv::Vec3d const on = math::getR3(pose) * cv::Vec3d(along, 0.5 * along, 0) + math::getT3(pose);
        cv::Vec3d const x = on - laser.normal * (laser.normal.dot(on) - laser.distance);
        cv::Vec3f const offset = cv::Vec3f(cv::Point3f(cv::Point3d(x)) - found.plane.point());
        squares += std::pow(static_cast<double>(offset.dot(found.plane.normal())), 2);
        ++count;
      }
    }
    return std::sqrt(squares / count);
  }

  AdjustmentRig rig;
  std::vector<TrueLaser> lasers;
  double lineNoise = 0.05;
};

TEST_F(LaserAdjustmentTest, FindsThePlanesOfExactLines) {
  rig.cameraNoise = 0;
  lineNoise = 0;
  LaserAdjustment const found = adjusted(views(8, 1));
  ASSERT_EQ(found.planes.size(), 2U);
  for (std::size_t p = 0; p < 2; ++p) {
    // Pixels are floats, to some 3e-5.
    EXPECT_LT(errorOf(found.planes[p], lasers[p]), 1e-4);
    EXPECT_LT(found.planes[p].rms, 1e-4);
    EXPECT_GT(found.planes[p].pointCount, 500);
  }
  EXPECT_EQ(found.parameters.size(), 9U + 8U);
  EXPECT_EQ(found.covariance.rows, 17);
  EXPECT_EQ(found.parameters[13], "nx_1");
}

TEST_F(LaserAdjustmentTest, FollowsABentTarget) {
  rig.cameraNoise = 0.002;
  lineNoise = 0.005;
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 1.5 * std::pow(dot[0] / half, 2)); };
  LaserAdjustment const found = adjusted(views(8, 1));
  EXPECT_NE(found.camera.shape.kind, TargetShape::Kind::Flat);
  AdjustmentSettings flat;
  flat.shape = AdjustmentSettings::Shape::Flat;
  LaserAdjustment const blind = adjusted(views(8, 1), flat);
  for (std::size_t p = 0; p < 2; ++p) {
    EXPECT_LT(found.planes[p].rms, 0.01);
    EXPECT_LT(20 * errorOf(found.planes[p], lasers[p]), errorOf(blind.planes[p], lasers[p]));
  }
}

/// Errors of many draws beside what was foretold of them.
struct Tally {
  double squares = 0;
  double foretold = 0;

  void add(double error, double variance) {
    squares += error * error;
    foretold += variance;
  }

  double ratio() const { return std::sqrt(squares / foretold); }
};

/// What is not known of a bent target's shape is part of the planes' error and of the lens's, and foretold.
TEST_F(LaserAdjustmentTest, ForetellsWhatABentTargetCosts) {
  constexpr int runs = 12;
  lineNoise = 0.01;
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.5 * std::pow(dot[0] / half, 2)); };
  Tally planes;
  Tally lens;
  AdjustmentSettings smooth;
  smooth.shape = AdjustmentSettings::Shape::Smooth;
  for (int run = 0; run < runs; ++run) {
    LaserAdjustment const found = adjusted(views(5, 300 + static_cast<std::uint64_t>(run)), smooth);
    for (std::size_t p = 0; p < 2; ++p) {
      planes.add(errorOf(found.planes[p], lasers[p]), std::pow(found.planes[p].sigma, 2));
    }
    lens.add(found.camera.models[0].getK().at<double>(0, 0) - rig.camera.K(0, 0),
             std::pow(found.camera.sigmas[0], 2));
  }
  EXPECT_GT(planes.ratio(), 0.7);
  EXPECT_LT(planes.ratio(), 1.3);
  EXPECT_GT(lens.ratio(), 0.7);
  EXPECT_LT(lens.ratio(), 1.3);
}

/// Over many draws the planes scatter by what is foretold of them, and lines that are exact make the lens and
/// the poses better too.
TEST_F(LaserAdjustmentTest, ForetellsItsOwnError) {
  constexpr int runs = 60;
  lineNoise = 0.01;
  Tally planes;
  Tally lens;
  double alone2 = 0;
  AdjustmentSettings flat;
  flat.shape = AdjustmentSettings::Shape::Flat;
  for (int run = 0; run < runs; ++run) {
    auto const drawn = views(5, 100 + static_cast<std::uint64_t>(run));
    LaserAdjustment const found = adjusted(drawn, flat);
    for (std::size_t p = 0; p < 2; ++p) {
      // By the covariance of normal and distance, at one place on the plane.
      cv::Vec3d const x = lasers[p].normal * lasers[p].distance + cv::Vec3d(0, 0, 20);
      cv::Vec3d const n(cv::Vec3f(found.planes[p].plane.normal()));
      double const d = n.dot(cv::Vec3d(cv::Vec3f(found.planes[p].plane.point())));
      double const sign = n.dot(lasers[p].normal) < 0 ? -1 : 1;
      double const error = sign * (n.dot(x) - d) - (lasers[p].normal.dot(x) - lasers[p].distance);
      cv::Vec4d const by(x[0], x[1], x[2], -1);
      int const first = 9 + 4 * static_cast<int>(p);
      cv::Mat_<double> const covariance = found.covariance(cv::Rect(first, first, 4, 4));
      planes.add(error, cv::Mat(cv::Mat(by).t() * covariance * cv::Mat(by)).at<double>(0, 0));
    }
    std::vector<AdjustmentView> dots;
    for (LaserAdjustmentView const& view : drawn) {
      dots.push_back(view.dots);
    }
    double const focal = found.camera.models[0].getK().at<double>(0, 0);
    lens.add(focal - rig.camera.K(0, 0), std::pow(found.camera.sigmas[0], 2));
    alone2 += std::pow(adjustCamera(dots, AdjustmentRig::sizeOf(rig.camera), flat).sigmas[0], 2);
  }
  EXPECT_GT(planes.ratio(), 0.8);
  EXPECT_LT(planes.ratio(), 1.2);
  EXPECT_GT(lens.ratio(), 0.75);
  EXPECT_LT(lens.ratio(), 1.25);
  EXPECT_LT(lens.foretold, alone2);
}

// Sigmas of errors that are independent were 3 to 4 times too small.
TEST_F(LaserAdjustmentTest, ErrorsThatDotsShareMakeSigmasLarger) {
  constexpr int runs = 12;
  Tally planes;
  Tally lens;
  AdjustmentSettings flat;
  flat.shape = AdjustmentSettings::Shape::Flat;
  for (int run = 0; run < runs; ++run) {
    auto drawn = views(8, 500 + static_cast<std::uint64_t>(run));
    cv::RNG random(30 + static_cast<std::uint64_t>(run));
    for (LaserAdjustmentView& view : drawn) {
      test::addShared(view.dots, 0.02, 1.5, rig.pitch, random);
    }
    LaserAdjustment const found = adjusted(drawn, flat);
    for (std::size_t p = 0; p < 2; ++p) {
      planes.add(errorOf(found.planes[p], lasers[p]), std::pow(found.planes[p].sigma, 2));
    }
    lens.add(found.camera.models[0].getK().at<double>(0, 0) - rig.camera.K(0, 0),
             std::pow(found.camera.sigmas[0], 2));
  }
  EXPECT_NEAR(planes.ratio(), 1.2, 0.4);
  EXPECT_NEAR(lens.ratio(), 1.2, 0.5);
}

TEST_F(LaserAdjustmentTest, IsTheSameInAnyUnit) {
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.5 * std::pow(dot[0] / half, 2)); };
  AdjustmentSettings smooth;
  smooth.shape = AdjustmentSettings::Shape::Smooth;
  auto given = views(8, 1);
  LaserAdjustment const expected = adjusted(given, smooth);
  constexpr float unit = 1e-6F;
  for (LaserAdjustmentView& view : given) {
    for (cv::Point2f& dot : view.dots.objPnts) {
      dot *= unit;
    }
  }
  LaserAdjustment const found = adjusted(given, smooth);
  for (std::size_t p = 0; p < 2; ++p) {
    EXPECT_LT(cv::norm(found.planes[p].plane.normal() - expected.planes[p].plane.normal()), 3e-6);
    EXPECT_NEAR(found.planes[p].sigma / unit, expected.planes[p].sigma, 1e-3 * expected.planes[p].sigma);
  }
}

TEST_F(LaserAdjustmentTest, KeepsACameraThatIsHeld) {
  CameraModel known;
  known.setResolution(rig.camera.resolution);
  AdjustmentSettings settings;
  LaserAdjustment const free = adjusted(views(8, 1));
  settings.holdCamera0 = true;
  LaserAdjustment const held = adjustLasers(views(8, 2), free.camera.models[0], settings);
  EXPECT_EQ(cv::norm(held.camera.models[0].getK(), free.camera.models[0].getK(), cv::NORM_INF), 0.0);
  EXPECT_EQ(held.parameters.size(), 8U);
  EXPECT_LT(errorOf(held.planes[1], lasers[1]), 0.02);
}

TEST_F(LaserAdjustmentTest, RefusesWhatDeterminesNoPlane) {
  auto const refused = [&](char const* text, std::function<void(std::vector<LaserAdjustmentView>&)> change) {
    auto given = views(4, 1);
    change(given);
    test::expectError([&] { (void)adjusted(given); }, text);
  };
  refused("has points in 1 views", [](auto& given) {
    for (std::size_t i = 1; i < given.size(); ++i) {
      given[i].lines[1].clear();
    }
  });
  refused("View 2 (pose_2) has 1 laser lines", [](auto& given) { given[2].lines.pop_back(); });
  refused("not finite", [](auto& given) { given[1].lines[0][3].x = std::nanf(""); });
  refused("at one place", [this](auto& given) {
    for (auto& view : given) {
      view = given[0];
    }
    given[3] = views(4, 1)[3];
    given[3].lines[0].clear();
    given[2] = views(4, 1)[2];
    given[2].lines[0].clear();
    given[1].dots = given[0].dots;
  });
}

} // namespace
} // namespace vorn::mv
