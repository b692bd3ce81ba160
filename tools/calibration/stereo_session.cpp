// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <opencv2/core.hpp>

#include <vorn/mv/calib/camera_calib_data.hpp>

#include "tools/calibration/calibration_session.hpp"

namespace vorn::tools {

namespace {

/// How far each camera's views miss when the other camera's pose is carried over by the transform.
void fillJointResiduals(std::vector<TargetView>& views, mv::StereoCamera const& stereo,
                        mv::CameraCalibData const& data0, mv::CameraCalibData const& data1) {
  cv::Matx44d const& cam0_from_cam1 = stereo.getTransform();
  cv::Matx44d const cam1_from_cam0 = cam0_from_cam1.inv();
  int number = 0;
  for (TargetView& view : views) {
    if (view.isUsed()) {
      auto const joint = [&](std::size_t device, mv::CameraModel const& model, cv::Matx44d const& pose) {
        view.devices[device].jointResiduals = residualsOf(view.devices[device], model, pose);
      };
      joint(0, stereo.getCameraModel0(), cam0_from_cam1 * data1.getPose(number));
      joint(1, stereo.getCameraModel1(), cam1_from_cam0 * data0.getPose(number));
      ++number;
    }
  }
}

} // namespace

StereoCalibration calibrateStereo(std::string const& folder, CalibrationSettings const& settings) {
  StereoCalibration calibration;
  cv::Size size0;
  cv::Size size1;
  calibration.views = readViews(folder, [&](std::filesystem::path const& pose, TargetView& view) {
    view.devices = {findTarget(pose / "target.png", settings.detector, size0),
                    findTarget(pose / "target_1.png", settings.detector, size1)};
  });
  calibrateViews(calibration.views, {"camera", "camera_1"}, [&] {
    mv::CameraCalibData data0 = calibData(calibration.views, 0);
    mv::CameraCalibData data1 = calibData(calibration.views, 1);
    mv::StereoCamera stereo;
    stereo.setResolution(size0, size1);
    stereo.calib(data0, data1);
    requireDifferentSides(data0);
    fillResiduals(calibration.views, 0, stereo.getCameraModel0(), data0);
    fillResiduals(calibration.views, 1, stereo.getCameraModel1(), data1);
    fillJointResiduals(calibration.views, stereo, data0, data1);
    calibration.stereo = stereo;
  });
  calibration.devices = {{"camera", calibration.stereo.getCameraModel0()},
                         {"camera_1", calibration.stereo.getCameraModel1()}};
  calibration.rotationDefect = agreedRotationDefect(calibration.stereo.getTransform());
  return calibration;
}

} // namespace vorn::tools
