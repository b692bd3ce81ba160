// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calibration_accuracy.hpp"

#include <cmath>

#include <sim/demo.hpp>
#include <sim/folder.hpp>

#include "support/temporary_folder.hpp"
#include "tools/calibration/folder_calibration.hpp"

namespace vorn::bench {

namespace {

/// The rms distance, over the whole image, between where the model and the truth see the same ray.
double distance(mv::CameraModel const& model, sim::Device const& truth) {
  constexpr int steps = 40;
  std::vector<cv::Point2d> pixels;
  std::vector<cv::Point3f> points;
  for (int i = 0; i <= steps; ++i) {
    for (int k = 0; k <= steps; ++k) {
      pixels.emplace_back((truth.resolution().width - 1) * k / double{steps},
                          (truth.resolution().height - 1) * i / double{steps});
      constexpr double depth = 500;
      cv::Vec3d const point = truth.ray(pixels.back()) * depth;
      points.emplace_back(cv::Point3d(point));
    }
  }
  std::vector<cv::Point2f> const seen = model.calcImagePoints(points, cv::Matx44d::eye());
  double squares = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    cv::Point2d const error = cv::Point2d(seen[i]) - pixels[i];
    squares += error.dot(error);
  }
  return std::sqrt(squares / static_cast<double>(pixels.size()));
}

} // namespace

CalibrationFigures calibrate(ScanCase const& given, ScanFigures const& scanWithTruth) {
  test::TemporaryFolder const folder;
  sim::Target const target = sim::demoTarget();
  sim::FolderOptions rendering;
  rendering.rows = true;
  rendering.truth = false;
  rendering.render.supersample = 1; // dots are drawn exactly whatever the number of rays
  sim::writeCalibrationFolder(folder.path().string(), given.rig, target, sim::demoTargetPoses(), rendering);
  mv::CalibrationSettings settings;
  settings.detector["PatternDim"] = target.grid.pitch;
  settings.projector = given.rig.projector.device.resolution();
  mv::ScannerCalibration const calibration = tools::calibrateScanner(folder.path().string(), settings);

  CalibrationFigures figures;
  figures.name = given.name;
  for (mv::CalibratedView const& view : calibration.views) {
    figures.views += view.isUsed() ? 1 : 0;
  }
  mv::CameraModel const& camera = calibration.object.getCameraModel();
  mv::CameraModel const& projector = calibration.object.getProjectorModel();
  figures.cameraError = camera.getCalibError();
  figures.projectorError = projector.getCalibError();
  figures.cameraModel = distance(camera, given.rig.camera.device);
  figures.projectorModel = distance(projector, given.rig.projector.device);
  figures.scan = scan(given, calibration.object);
  figures.scanWithTruth = scanWithTruth;
  return figures;
}

} // namespace vorn::bench
