// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/scanner_type.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "sim/render.hpp"
#include "sim/truth.hpp"

namespace vorn::mv::test {

/// The true calibration of a rendered device, as a calibration would have found it.
inline CameraModel modelOf(sim::Device const& device) {
  nlohmann::json json;
  json["Resolution"] = device.resolution();
  json["K"] = device.matrix();
  json["D"] = cv::Mat(1, 5, CV_64F, const_cast<double*>(device.distortion().data()));
  json["Error"] = 0.1;
  CameraModel model;
  model.read(json);
  return model;
}

/// A scanner that knows its rig exactly; diagnostics are off.
inline Sl3dScanner scannerOf(sim::Rig const& rig) {
  Library::init();
  System::set("EnableDebugMode", Variant(false));
  Sl3dScanner scanner;
  scanner.getCameraModel() = modelOf(rig.camera.device);
  scanner.getProjectorModel() = modelOf(rig.projector.device);
  scanner.setTransform(rig.projector.world_from_proj.matrix());
  return scanner;
}

/// The pattern sequence of the rig's projector.
inline std::vector<cv::Mat> patternsOf(sim::Rig const& rig, scanner::ScannerType const& type) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  generate_ps4_patterns(columns, rows, rig.projector.device.resolution());
  return type == scanner::ScannerType::Horizontal ? columns : rows;
}

/// The stack that the rig's camera captures.
inline std::vector<cv::Mat> captured(sim::Rig const& rig, sim::Scene const& scene,
                                     scanner::ScannerType const& type = scanner::ScannerType::Horizontal) {
  return sim::ProjectorView(rig.camera, rig.projector, scene).capture(patternsOf(rig, type));
}

} // namespace vorn::mv::test
