// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include "sim/demo.hpp"
#include "sim/truth.hpp"

namespace vorn::sim {
namespace {

Object placed(Shape shape, cv::Vec3d const& position, int label) {
  Object object;
  object.label = label;
  object.shape = std::move(shape);
  object.world_from_object.translation = position;
  return object;
}

HeightField relief() {
  HeightField field;
  field.halfSize = {30, 20};
  field.bumps = {{9, {-8, 3}, 6}, {-7, {10, -4}, 5}};
  field.waves = {{2, {0.6, 0.8}, 11, 0.3}};
  return field;
}

/// Signed by the side of the surface a point is on; what "inside" means does not matter, only where it
/// changes.
bool isInside(Shape const& shape, cv::Vec3d const& p) {
  if (auto const* box = std::get_if<Box>(&shape)) {
    return std::abs(p[0]) < box->halfSize[0] && std::abs(p[1]) < box->halfSize[1] &&
           std::abs(p[2]) < box->halfSize[2];
  }
  if (auto const* sphere = std::get_if<Sphere>(&shape)) {
    return cv::norm(p) < sphere->radius;
  }
  if (auto const* bar = std::get_if<Cylinder>(&shape)) {
    return std::hypot(p[0], p[2]) < bar->radius && std::abs(p[1]) < bar->halfLength;
  }
  auto const& field = std::get<HeightField>(shape);
  return p[2] < field.height(p[0], p[1]);
}

bool isBeside(Shape const& shape, cv::Vec3d const& p) {
  auto const* field = std::get_if<HeightField>(&shape);
  return field != nullptr && (std::abs(p[0]) > field->halfSize[0] || std::abs(p[1]) > field->halfSize[1]);
}

/// The first change of side along a ray by many small steps: -1 for none.
double firstChange(Shape const& shape, Ray const& ray, double step) {
  bool wasBeside = true;
  bool wasInside = false;
  for (double t = 0; t < 1; t += step) {
    cv::Vec3d const p = ray.origin + t * ray.direction;
    bool const beside = isBeside(shape, p);
    bool const inside = isInside(shape, p);
    if (!beside && !wasBeside && inside != wasInside) {
      return t;
    }
    wasBeside = beside;
    wasInside = inside;
  }
  return -1;
}

TEST(Intersect, FindsTheFirstPointThatSmallStepsFind) {
  constexpr double step = 1.0 / 20000;
  cv::RNG rng(cv::theRNG().state);
  for (Shape const& shape :
       {Shape(Box{{10, 6, 4}}), Shape(Sphere{9}), Shape(Cylinder{4, 12}), Shape(relief())}) {
    int hits = 0;
    int disagreements = 0;
    for (int i = 0; i < 60; ++i) {
      // Rays from all around, many of them grazing: 160 mm long, so that a step is 0.008 mm.
      cv::Vec3d const from(rng.gaussian(1), rng.gaussian(1), rng.gaussian(0.5));
      cv::Vec3d const origin = cv::normalize(from) * 70.0;
      cv::Vec3d const through(rng.uniform(-14., 14.), rng.uniform(-10., 10.), rng.uniform(-8., 8.));
      Ray const ray = {origin, cv::normalize(through - origin) * 160.0};
      ShapeHit hit;
      bool const found = intersect(shape, ray, 0, 1, hit);
      double const expected = firstChange(shape, ray, step);
      hits += found ? 1 : 0;
      // Steps can miss a corner that is cut by less than a step, never the other way round.
      if (found != (expected >= 0) || (found && std::abs(hit.t - expected) > 1.01 * step)) {
        ++disagreements;
      }
    }
    EXPECT_GE(hits, 20);
    EXPECT_LE(disagreements, 1);
  }
}

TEST(Intersect, NormalsAreAtRightAnglesToTheSurface) {
  HeightField const field = relief();
  constexpr double h = 1e-4;
  ShapeHit hit;
  ASSERT_TRUE(intersect(field, {{-5, 4, 40}, {0.05, -0.1, -1}}, 0, 100, hit));
  double const x = hit.uv[0];
  double const y = hit.uv[1];
  EXPECT_NEAR(hit.normal.dot({2 * h, 0, field.height(x + h, y) - field.height(x - h, y)}) / h, 0, 1e-6);
  EXPECT_NEAR(hit.normal.dot({0, 2 * h, field.height(x, y + h) - field.height(x, y - h)}) / h, 0, 1e-6);
}

class SphereBeforePlane : public testing::Test {
protected:
  static constexpr double radius = 40;
  cv::Vec3d const centre_ = {-20, 10, 500};
  Rig const rig_ = demoRig(4);
  Scene const scene_{{placed(Rectangle{{400, 400}}, {0, 0, 620}, 1), placed(Sphere{radius}, centre_, 2)}};
  Truth const truth_ = truth(rig_.camera, rig_.projector, scene_);
};

TEST_F(SphereBeforePlane, TruthLiesOnTheObjectsAndTheCameraRays) {
  // Single precision at 600 mm.
  constexpr double roundingMm = 1e-4;
  constexpr double roundingPx = 1e-3;
  std::vector<cv::Point3d> points;
  std::vector<cv::Point2d> pixels;
  std::vector<cv::Vec2f> projected;
  for (int y = 0; y < truth_.label.rows; ++y) {
    for (int x = 0; x < truth_.label.cols; ++x) {
      cv::Vec3d const p = truth_.x_in_cam(y, x);
      if (std::isnan(p[0])) {
        continue;
      }
      double const off = truth_.label(y, x) == 2 ? cv::norm(p - centre_) - radius : p[2] - 620;
      ASSERT_NEAR(off, 0, roundingMm);
      points.emplace_back(p[0], p[1], p[2]);
      pixels.emplace_back(x, y);
      projected.push_back(truth_.projector(y, x));
    }
  }
  ASSERT_GT(points.size(), 30000U);
  std::vector<cv::Point2d> expected;
  Device const& camera = rig_.camera.device;
  cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), camera.matrix(), camera.distortion(), expected);
  EXPECT_LT(cv::norm(expected, pixels, cv::NORM_INF), roundingPx);
  Pose const proj_from_cam = rig_.projector.world_from_proj.inverse();
  cv::Vec3d rotation;
  cv::Rodrigues(proj_from_cam.rotation, rotation);
  Device const& projector = rig_.projector.device;
  cv::projectPoints(points, rotation, proj_from_cam.translation, projector.matrix(), projector.distortion(),
                    expected);
  std::vector<cv::Point2d> const found(projected.begin(), projected.end());
  EXPECT_LT(cv::norm(expected, found, cv::NORM_INF), roundingPx);
}

TEST_F(SphereBeforePlane, ThePlaneIsDarkWhereTheSphereStandsInTheLight) {
  cv::Vec3d const light = rig_.projector.world_from_proj.translation;
  Pose const proj_from_world = rig_.projector.world_from_proj.inverse();
  int dark = 0;
  for (int y = 0; y < truth_.label.rows; ++y) {
    for (int x = 0; x < truth_.label.cols; ++x) {
      if (truth_.label(y, x) != 1) {
        continue;
      }
      cv::Vec3d const ray = rig_.camera.device.ray(cv::Point2d(x, y));
      cv::Vec3d const point = ray * 620.0;
      auto const pixel = rig_.projector.device.project(proj_from_world * point);
      double const distance = cv::norm((point - light).cross(centre_ - light)) / cv::norm(point - light);
      bool const lit = distance > radius && pixel && rig_.projector.device.contains(*pixel);
      ASSERT_EQ(!std::isnan(truth_.x_in_cam(y, x)[0]), lit) << x << " " << y;
      dark += distance > radius ? 0 : 1;
    }
  }
  EXPECT_GT(dark, 500);
}

TEST_F(SphereBeforePlane, EdgesRingTheSphereAndItsShadowOnly) {
  for (int y = 0; y < truth_.label.rows; ++y) {
    for (int x = 0; x < truth_.label.cols; ++x) {
      cv::Vec3d const ray = cv::normalize(rig_.camera.device.ray(cv::Point2d(x, y)));
      double const pixels = (cv::norm(ray.cross(centre_)) - radius) * 388.0 / 500.0;
      // Edges reach three to four pixels from an outline; 45 degrees make that a diagonal.
      if (std::abs(pixels) < 2.5) {
        ASSERT_EQ(truth_.edge(y, x), 255) << x << " " << y;
      }
      if (pixels < -7.0) {
        ASSERT_EQ(truth_.edge(y, x), 0) << x << " " << y;
      }
    }
  }
}

} // namespace
} // namespace vorn::sim
