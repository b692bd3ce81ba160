// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What every calibrated object promises of its document: no bit is lost through a file, and no number may be
// missing.
#include <cmath>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

/// A transform whose elements need all their digits.
cv::Matx44d oddTransform() {
  cv::Matx44d transform = cv::Matx44d::eye();
  for (int i = 0; i < 12; ++i) {
    transform.val[i] += std::sqrt(i + 2.0) / 7;
  }
  return transform;
}

CameraModel oddCamera() {
  return test::modelOf(sim::demoRig(4).camera.device);
}

nlohmann::json documentOf(IJsonSerializable const& object) {
  nlohmann::json json;
  object.write(json);
  return json;
}

/// Reads the object's document through text into a fresh object; there, each number in turn is null.
template <class Object>
Object throughText(Object const& object) {
  nlohmann::json const written = documentOf(object);
  Object copy;
  copy.read(nlohmann::json::parse(written.dump()));
  nlohmann::json const before = documentOf(copy);
  EXPECT_EQ(before, written);

  int numbers = 0;
  nlohmann::json const flat = written.flatten();
  for (auto const& [place, value] : flat.items()) {
    if (!value.is_number()) {
      continue;
    }
    ++numbers;
    nlohmann::json broken = written;
    broken[nlohmann::json::json_pointer(place)] = nullptr;
    EXPECT_ANY_THROW(copy.read(broken)) << place;
    EXPECT_EQ(documentOf(copy), before) << place;
  }
  EXPECT_GT(numbers, 15);
  return copy;
}

TEST(CalibrationJson, Camera) {
  CameraModel const camera = oddCamera();
  CameraModel const copy = throughText(camera);
  EXPECT_EQ(cv::norm(copy.getK(), camera.getK(), cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(copy.getD(), camera.getD(), cv::NORM_INF), 0);
}

TEST(CalibrationJson, Scanner) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  scanner.setTransform(oddTransform());
  scanner.setPose(oddTransform().t());
  Sl3dScanner const copy = throughText(scanner);
  EXPECT_EQ(copy.getTransform(), oddTransform());
  EXPECT_EQ(copy.getPose(), oddTransform().t());
}

TEST(CalibrationJson, StereoCamera) {
  nlohmann::json const camera = documentOf(oddCamera());
  StereoCamera stereo;
  stereo.read({{"CameraModel0", camera},
               {"CameraModel1", camera},
               {"Hpc", oddTransform()},
               {"Hpose", oddTransform()}});
  EXPECT_EQ(throughText(stereo).getTransform(), oddTransform());
}

TEST(CalibrationJson, LineScanner) {
  Plane3f const plane({0.1F, 1 / 3.0F, 500.7F}, {0.6F, -0.48F, 0.64F});
  nlohmann::json json = {{"CameraModel", documentOf(oddCamera())}, {"Plane_0", documentOf(plane)}};
  LineScanner scanner;
  scanner.read(json);
  LineScanner const copy = throughText(scanner);
  ASSERT_EQ(copy.getPlanes().size(), 1U);
  EXPECT_EQ(copy.getPlanes()[0].point(), plane.point());
  EXPECT_EQ(copy.getPlanes()[0].normal(), plane.normal());

  json["Plane_0"]["n"] = {0.0, 0.0, 0.0};
  EXPECT_THROW(scanner.read(json), Exception);
}

} // namespace
} // namespace vorn::mv
