// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibration.hpp>

#include <cmath>
#include <sstream>

#include <opencv2/core.hpp>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

template <class Value>
Exception outOfRange(char const* setting, Value const& value, char const* bound) {
  std::ostringstream message;
  message << "CalibrationSettings: " << setting << " is " << value << ", but must be " << bound;
  return error(message.str(), "calibrate");
}

void checkCamera(std::optional<CameraModel> const& camera, char const* name, bool isAdjusted) {
  if (camera && camera->getK().empty()) {
    throw error(std::string("CalibrationSettings: ") + name + " is not calibrated", "calibrate");
  }
  if (camera && !isAdjusted) {
    throw error(std::string("CalibrationSettings: ") + name + " needs isAdjusted", "calibrate");
  }
}

} // namespace

void CalibrationSettings::check() const {
  constexpr int least = 16;
  constexpr int most = 8192;
  for (int const extent : {projector.width, projector.height}) {
    if (projector != cv::Size() && (extent < least || extent > most)) {
      throw outOfRange("projector", projector, "16 to 8192 pixels in width and height, or empty");
    }
  }
  if (!(outlierRatio >= 1.0)) {
    throw outOfRange("outlierRatio", outlierRatio, "1 or more");
  }
  if (!(outlierError >= 0.0)) {
    throw outOfRange("outlierError", outlierError, "0 or more");
  }
  if (!(whiteLevel >= 0.0) || !std::isfinite(whiteLevel)) {
    throw outOfRange("whiteLevel", whiteLevel, "a number of 0 or more");
  }
  checkCamera(camera, "camera", isAdjusted);
  checkCamera(camera1, "camera1", isAdjusted);
  line.check();
  if (laserColor) {
    laserColor->check();
  }
  detect.check();
  if (target) {
    target->check();
  }
}

double rms(std::vector<cv::Point2f> const& residuals) {
  double squares = 0;
  for (cv::Point2f const& residual : residuals) {
    squares += residual.ddot(residual);
  }
  return residuals.empty() ? 0.0 : std::sqrt(squares / static_cast<double>(residuals.size()));
}

} // namespace vorn::mv
