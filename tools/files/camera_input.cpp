// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/camera_input.hpp"

#include <filesystem>
#include <system_error>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/opencv_camera.hpp>

#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"

namespace vorn::tools {

bool isOpenCvStorage(std::string const& path) {
  std::string const ending = lowerCaseEnding(path);
  return ending == ".yml" || ending == ".yaml" || ending == ".xml";
}

mv::CameraModel readCamera(std::string const& path) {
  checkInputFile(path);
  if (isOpenCvStorage(path)) {
    return mv::readOpenCvCamera(path);
  }
  nlohmann::json const json = readJsonFile(path);
  if (json.contains("CameraModel")) {
    return load<mv::Sl3dScanner>(path).getCameraModel();
  }
  return json.contains("Resolution") ? load<mv::CameraModel>(path) : mv::readOpenCvCamera(path);
}

void loadScanner(std::string const& path, mv::Sl3dScanner& scanner) {
  std::error_code reason;
  nlohmann::json const json = // what comes through a pipe can be read once
      std::filesystem::is_regular_file(path, reason) ? readJsonFile(path) : nlohmann::json();
  // A scanner that lacks one of its parts is told which one.
  bool const hasPart = json.contains("CameraModel") || json.contains("ProjectorModel");
  char const* const kind = json.contains("CameraModel0") ? "two cameras, of calibrate --stereo"
                           : json.contains("Plane_0") ? "a laser line scanner, which scan takes with --laser"
                           : !hasPart && json.contains("K")     ? "a camera"
                           : !hasPart && json.contains("pitch") ? "the description of a target"
                                                                : nullptr;
  if (kind != nullptr) {
    throw Exception(path + " holds " + kind +
                        ", not a structured-light scanner: calibrate writes one from views "
                        "with columns and rows",
                    nullptr, 0, "calibration");
  }
  load(path, scanner);
}

} // namespace vorn::tools
