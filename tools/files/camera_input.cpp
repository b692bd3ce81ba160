// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/camera_input.hpp"

#include <nlohmann/json.hpp>

#include <vorn/mv/calib/opencv_camera.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

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

} // namespace vorn::tools
