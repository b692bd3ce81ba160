// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/geometry/sphere3f.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

TEST(Sphere3f, DistanceIsThatFromItsSurface) {
  Sphere3f const sphere({1, 2, 3}, 2.0F);
  EXPECT_DOUBLE_EQ(sphere.distance({1, 2, 8}), 3.0);
  EXPECT_DOUBLE_EQ(sphere.distance({1, 2, 3.5F}), 1.5);
}

TEST(Sphere3f, KeepsItsNumbersInJsonAndFileStorage) {
  Sphere3f const sphere({1, -2, 3.5F}, 2.25F);
  nlohmann::json json;
  sphere.write(json);
  Sphere3f fromJson;
  fromJson.read(json);
  EXPECT_EQ(fromJson.centre(), sphere.centre());
  EXPECT_EQ(fromJson.radius(), sphere.radius());

  cv::FileStorage out(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  out << "ball" << sphere;
  cv::FileStorage const in(out.releaseAndGetString(), cv::FileStorage::READ | cv::FileStorage::MEMORY);
  Sphere3f fromStorage;
  in["ball"] >> fromStorage;
  EXPECT_EQ(fromStorage.centre(), sphere.centre());
  EXPECT_EQ(fromStorage.radius(), sphere.radius());
}

TEST(Sphere3f, RefusesWhatIsNoSphereAndStaysAsItWas) {
  constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
  test::expectError([] { Sphere3f({0, 0, 0}, -1.0F); }, "radius");
  test::expectError([] { Sphere3f({0, notANumber, 0}, 1.0F); }, "centre");
  Sphere3f sphere({1, 2, 3}, 4.0F);
  test::expectError([&] { sphere.read(nlohmann::json{{"c", {5, 6, 7}}, {"r", -1.0}}); }, "radius");
  cv::FileStorage const in("%YAML:1.0\nball:\n  c: [ 1., 2. ]\n  r: 1.\n",
                           cv::FileStorage::READ | cv::FileStorage::MEMORY);
  test::expectError([&] { sphere.read(in["ball"]); }, "\"c\"");
  EXPECT_EQ(sphere.radius(), 4.0F);
  EXPECT_EQ(sphere.centre().x, 1.0F);
}

} // namespace
} // namespace vorn::mv
