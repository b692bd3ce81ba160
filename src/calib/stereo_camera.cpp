// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/stereo_camera.hpp>

#include <sstream>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "calib/calibrated_poses.hpp"
#include "calib/covariance_json.hpp"
#include "calib/transform_json.hpp"
#include "calib/undistorted_map.hpp"
#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::mv {

struct StereoCamera::Private : Record<StereoCamera::Private, PropertySetBase::Private> {
  Private() { isNeverShared = true; } // as the camera models in it

  CameraModel model0;
  CameraModel model1;
  cv::Matx44d cam0_from_cam1 = cv::Matx44d::eye();
  cv::Matx44d pose = cv::Matx44d::eye();
  cv::Mat_<cv::Vec2f> map0;
  cv::Mat_<cv::Vec2f> map1;
  CalibrationCovariance covariance;
};

namespace {

void checkSameViews(CameraCalibData const& data0, CameraCalibData const& data1) {
  if (data0.count() != data1.count() || data0.getPoses().size() != data1.getPoses().size()) {
    auto const describe = [](CameraCalibData const& data) {
      return std::to_string(data.count()) + " views with " + std::to_string(data.getPoses().size()) +
             " poses";
    };
    throw error("The data sets do not match: " + describe(data0) + " and " + describe(data1), "calib");
  }
}

cv::Mat_<cv::Vec2f> mapOf(CameraModel const& model, char const* camera) {
  System::message(std::string("Calculating ") + camera + " distortion map...\n");
  cv::Mat_<cv::Vec2f> map = undistortedMap(model.getK(), model.getD(), model.getResolution());
  System::message("DONE\n");
  return map;
}

} // namespace

StereoCamera::StereoCamera() : PropertySetBase(new Private) {}

StereoCamera::~StereoCamera() = default;

void StereoCamera::calib(CameraCalibData& data0, CameraCalibData& data1) {
  constexpr int maxIterations = 100;
  constexpr double usableError = 0.5;
  if (data0.count() < 3) {
    throw error("Insufficient calibration data", "calib");
  }
  if (data1.count() >= 3) { // below that the calibration of camera 1 says so
    checkSameViews(data0, data1);
  }
  CameraModel model0 = getCameraModel0();
  CameraModel model1 = getCameraModel1();
  CameraCalibData calibrated0 = data0;
  CameraCalibData calibrated1 = data1;
  System::message("Calibrating camera0...\n");
  double const error0 = model0.calib(calibrated0, maxIterations);
  System::message("Calibrating camera1...\n");
  double const error1 = model1.calib(calibrated1, maxIterations);

  System::message("Calculating proj->cam transformation\n");
  auto const cam0_from_cam1 = meanTransform(calibrated0.getPoses(), calibrated1.getPoses());
  std::ostringstream message;
  message << "R_pc:" << math::getR3(cam0_from_cam1) << "\np_pc:" << math::getT3(cam0_from_cam1) << "\n";
  System::message(message.str());

  auto& own = static_cast<Private&>(ownRecord());
  own.model0 = model0;
  own.model1 = model1;
  own.cam0_from_cam1 = cam0_from_cam1;
  own.covariance = {};
  own.map0.release();
  own.map1.release();
  addNewPoses(data0, calibrated0);
  addNewPoses(data1, calibrated1);
  if (error0 < usableError && error1 < usableError) {
    calcUndistortedMaps();
  }
}

void StereoCamera::calcUndistortedMaps() {
  auto const map0 = mapOf(getCameraModel0(), "camera0");
  auto const map1 = mapOf(getCameraModel1(), "camera1");
  auto& own = static_cast<Private&>(ownRecord());
  own.map0 = map0;
  own.map1 = map1;
}

cv::Mat_<cv::Vec2f> const& StereoCamera::getUndistortedMap0() const {
  return static_cast<Private const&>(record()).map0;
}

cv::Mat_<cv::Vec2f> const& StereoCamera::getUndistortedMap1() const {
  return static_cast<Private const&>(record()).map1;
}

void StereoCamera::setResolution(cv::Size const& size0, cv::Size const& size1) {
  auto& own = static_cast<Private&>(ownRecord());
  own.model0.setResolution(size0);
  own.model1.setResolution(size1);
  own.map0.release();
  own.map1.release();
}

void StereoCamera::setCameraModels(CameraModel const& model0, CameraModel const& model1) {
  auto& own = static_cast<Private&>(ownRecord());
  own.model0 = model0;
  own.model1 = model1;
  own.map0.release();
  own.map1.release();
}

CameraModel const& StereoCamera::getCameraModel0() const {
  return static_cast<Private const&>(record()).model0;
}

CameraModel const& StereoCamera::getCameraModel1() const {
  return static_cast<Private const&>(record()).model1;
}

cv::Matx44d const& StereoCamera::getTransform() const {
  return static_cast<Private const&>(record()).cam0_from_cam1;
}

void StereoCamera::setTransform(cv::Matx44d const& cam0_from_cam1) {
  auto& own = static_cast<Private&>(ownRecord());
  own.cam0_from_cam1 = cam0_from_cam1;
  own.covariance = {};
}

cv::Matx44d const& StereoCamera::getPose() const {
  return static_cast<Private const&>(record()).pose;
}

void StereoCamera::setPose(cv::Matx44d const& pose) {
  static_cast<Private&>(ownRecord()).pose = pose;
}

bool StereoCamera::isCalibrated() const {
  return getCameraModel0().isCalibrated() && getCameraModel1().isCalibrated();
}

CalibrationCovariance StereoCamera::getCovariance() const {
  CalibrationCovariance covariance = static_cast<Private const&>(record()).covariance;
  covariance.matrix = covariance.matrix.clone();
  return covariance;
}

void StereoCamera::setCovariance(CalibrationCovariance const& covariance) {
  CalibrationCovariance const own = covarianceFor(2, covariance, "StereoCamera");
  static_cast<Private&>(ownRecord()).covariance = own;
}

std::string const& StereoCamera::getClassName() const {
  static std::string const name = "vorn::mv::StereoCamera";
  return name;
}

void StereoCamera::read(nlohmann::json const& json) {
  CameraModel model0;
  CameraModel model1;
  readJsonObject(json, "CameraModel0", model0, "StereoCamera");
  readJsonObject(json, "CameraModel1", model1, "StereoCamera");
  cv::Matx44d const transform = readTransform(json, "Hpc", "StereoCamera");
  cv::Matx44d const pose = readTransform(json, "Hpose", "StereoCamera");
  CalibrationCovariance const covariance = readCovariance(json, 2, "StereoCamera");
  auto& own = static_cast<Private&>(ownRecord());
  own.model0 = model0;
  own.model1 = model1;
  own.cam0_from_cam1 = transform;
  own.pose = pose;
  own.covariance = covariance;
  own.map0.release();
  own.map1.release();
}

void StereoCamera::write(nlohmann::json& json) const {
  json = nlohmann::json::object();
  getCameraModel0().write(json["CameraModel0"]);
  getCameraModel1().write(json["CameraModel1"]);
  json["Hpc"] = getTransform();
  json["Hpose"] = getPose();
  writeCovariance(json, static_cast<Private const&>(record()).covariance);
}

} // namespace vorn::mv
