// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What an adjustment knows of its own error goes with the calibrated object, through documents too.
#include <vorn/mv/calib/calibration_covariance.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "calib/adjustment_rig.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

Adjustment const& adjusted() {
  static Adjustment const result = [] {
    test::AdjustmentRig rig;
    rig.cameraNoise = 0.01;
    rig.projectorNoise = 0.005;
    AdjustmentSettings settings;
    settings.shape = AdjustmentSettings::Shape::Flat;
    return adjustScanner(rig.views(4), rig.sizeOf(rig.camera), rig.sizeOf(rig.projector), settings);
  }();
  return result;
}

Sl3dScanner scannerWithCovariance() {
  Sl3dScanner scanner;
  scanner.getCameraModel() = adjusted().models[0];
  scanner.getProjectorModel() = adjusted().models[1];
  scanner.setTransform(adjusted().transform);
  scanner.setCovariance(covarianceOf(adjusted(), 2e-5));
  return scanner;
}

template <class Object>
nlohmann::json documentOf(Object const& object) {
  nlohmann::json json;
  object.write(json);
  return nlohmann::json::parse(json.dump());
}

bool isSame(CalibrationCovariance const& a, CalibrationCovariance const& b) {
  return a.parameters == b.parameters && a.scaleSigma == b.scaleSigma && a.matrix.size() == b.matrix.size() &&
         (a.matrix.empty() || cv::norm(a.matrix, b.matrix, cv::NORM_INF) == 0);
}

/// Takes the rows and columns of the first camera alone.
CalibrationCovariance ofCamera(CalibrationCovariance const& whole, int count) {
  CalibrationCovariance part;
  part.parameters.assign(whole.parameters.begin(), whole.parameters.begin() + count);
  part.matrix = whole.matrix(cv::Rect(0, 0, count, count));
  return part;
}

TEST(CalibrationCovariance, GoesThroughDocumentsToTheBit) {
  Sl3dScanner const scanner = scannerWithCovariance();
  CalibrationCovariance const given = scanner.getCovariance();
  ASSERT_EQ(given.parameters.size(), 24U);
  Adjustment const& adjustment = adjusted();
  for (std::size_t i = 0; i < given.parameters.size(); ++i) {
    EXPECT_NEAR(given.sigmaOf(adjustment.parameters[i]), adjustment.sigmas[i], 1e-12 * adjustment.sigmas[i]);
  }
  EXPECT_EQ(given.sigmaOf("k4_1"), 0);
  Sl3dScanner copy;
  copy.read(documentOf(scanner));
  EXPECT_TRUE(isSame(copy.getCovariance(), given));

  StereoCamera stereo;
  stereo.setCovariance(given);
  StereoCamera stereoCopy;
  CameraModel camera = adjustment.models[0];
  camera.setCovariance(ofCamera(given, 9));
  nlohmann::json document = documentOf(stereo);
  document["CameraModel0"] = documentOf(camera);
  stereoCopy.read(document);
  EXPECT_TRUE(isSame(stereoCopy.getCovariance(), given));
  EXPECT_TRUE(isSame(stereoCopy.getCameraModel0().getCovariance(), camera.getCovariance()));
  EXPECT_TRUE(stereoCopy.getCameraModel1().getCovariance().isEmpty());
}

TEST(CalibrationCovariance, IsOfItsObjectAlone) {
  Sl3dScanner scanner = scannerWithCovariance();
  CalibrationCovariance const before = scanner.getCovariance();
  scanner.getCovariance().matrix.setTo(0);
  CalibrationCovariance given = covarianceOf(adjusted(), 2e-5);
  Sl3dScanner other = scanner;
  other.setCovariance(given);
  given.matrix.setTo(0);
  EXPECT_TRUE(isSame(scanner.getCovariance(), before));
  EXPECT_TRUE(isSame(other.getCovariance(), before));
  other.setTransform(other.getTransform());
  EXPECT_TRUE(other.getCovariance().isEmpty());
  EXPECT_FALSE(documentOf(other).contains("Covariance"));
  other = scanner;
  other.read(documentOf(Sl3dScanner())); // without one
  EXPECT_TRUE(other.getCovariance().isEmpty());
  EXPECT_TRUE(isSame(scanner.getCovariance(), before));
}

TEST(CalibrationCovariance, RefusesWhatIsNone) {
  using Json = nlohmann::json;
  struct Case {
    char const* place;
    std::function<void(Json&)> spoil;
  };
  double const notPositive = 0.999; // three errors cannot all be each other's opposites
  std::vector<Case> const cases{
      {"Covariance", [](Json& c) { c = 5; }},
      {"Covariance.Parameters", [](Json& c) { c.erase("Parameters"); }},
      {"Covariance.Parameters[2]", [](Json& c) { c["Parameters"][2] = "cx2"; }},
      {"Covariance.Parameters[3]", [](Json& c) { c["Parameters"][3] = "cx0"; }},
      {"Covariance.Parameters[0]", [](Json& c) { c["Parameters"][0] = "fx"; }},
      {"Covariance.Parameters[0]", [](Json& c) { c["Parameters"][0] = 1; }},
      {"Covariance.Matrix", [](Json& c) { c.erase("Matrix"); }},
      {"Covariance.Matrix", [](Json& c) { c["Parameters"].erase(23); }},
      {"Covariance.Matrix.data", [](Json& c) { c["Matrix"]["data"].erase(7); }},
      {"Covariance.Matrix.data[24]", [](Json& c) { c["Matrix"]["data"][24] = nullptr; }},
      {"Covariance.Matrix.data[25]", [](Json& c) { c["Matrix"]["data"][25] = -1.0; }},
      {"Covariance.Matrix.data[1]", [](Json& c) { c["Matrix"]["data"][1] = 1e3; }},
      {"Covariance.Matrix",
       [&](Json& c) {
         std::vector<double> data(576, 0.0);
         for (std::size_t i = 0; i < 24; ++i) {
           data[25 * i] = 1;
         }
         for (std::size_t const i : {1, 2, 24, 26, 48, 49}) {
           data[i] = -notPositive;
         }
         c["Matrix"]["data"] = data;
       }},
      {"Covariance.Units", [](Json& c) { c["Units"].push_back("px"); }},
      {"Covariance.Units[18]", [](Json& c) { c["Units"][18] = "deg"; }},
      {"Covariance.ScaleSigma", [](Json& c) { c["ScaleSigma"] = -1e-5; }},
      {"Covariance.ScaleSigma", [](Json& c) { c["ScaleSigma"] = "little"; }}};
  Sl3dScanner scanner = scannerWithCovariance();
  Json const whole = documentOf(scanner);
  for (Case const& one : cases) {
    SCOPED_TRACE(one.place);
    Json document = whole;
    one.spoil(document["Covariance"]);
    test::expectError([&] { scanner.read(document); }, std::string("\"") + one.place + '"');
    EXPECT_EQ(documentOf(scanner), whole);
  }
  Json spare = whole;
  spare["Covariance"].erase("ScaleSigma");
  scanner.read(spare);
  EXPECT_EQ(scanner.getCovariance().scaleSigma, 0);

  CameraModel camera;
  test::expectError([&] { camera.setCovariance(covarianceOf(adjusted())); }, "fx1");
  EXPECT_TRUE(camera.getCovariance().isEmpty());
  EXPECT_THROW((void)covarianceOf(adjusted(), -1), Exception);
  EXPECT_THROW((void)covarianceOf(adjusted(), std::numeric_limits<double>::quiet_NaN()), Exception);
}

} // namespace
} // namespace vorn::mv
