// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibration.hpp>

#include <algorithm>
#include <cmath>
#include <sstream>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

double worst(std::vector<cv::Point2f> const& residuals) {
  double most = 0;
  for (cv::Point2f const& residual : residuals) {
    most = std::max(most, cv::norm(residual));
  }
  return most;
}

nlohmann::json toJson(ViewPoints const& points) {
  nlohmann::json json = {
      {"points", points.imgPnts.size()}, {"rms", rms(points.residuals)}, {"worst", worst(points.residuals)}};
  if (!points.jointResiduals.empty()) {
    json["jointRms"] = rms(points.jointResiduals);
  }
  return json;
}

nlohmann::json toJson(CalibratedView const& view, CalibrationReport const& report) {
  nlohmann::json entry = {{"name", view.name}, {"used", view.isUsed()}};
  if (!view.isUsed()) {
    entry["reason"] = view.reason;
    return entry;
  }
  for (std::size_t d = 0; d < view.devices.size(); ++d) {
    entry[report.devices[d].name] = toJson(view.devices[d]);
  }
  for (ViewLine const& line : view.lines) {
    entry["lines"].push_back({{"points", line.imgPnts.size()}, {"planeRms", line.planeRms}});
  }
  if (!view.remark.empty()) {
    entry["remark"] = view.remark;
  }
  return entry;
}

template <class Value>
Exception outOfRange(char const* setting, Value const& value, char const* bound) {
  std::ostringstream message;
  message << "CalibrationSettings: " << setting << " is " << value << ", but must be " << bound;
  return error(message.str(), "calibrate");
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
  line.check();
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

nlohmann::json toJson(Calibration const& calibration) {
  CalibrationReport const& report = calibration.report;
  nlohmann::json views = nlohmann::json::array();
  for (CalibratedView const& view : calibration.views) {
    views.push_back(toJson(view, report));
  }
  nlohmann::json json = {{"views", std::move(views)}};
  for (DeviceReport const& device : report.devices) {
    nlohmann::json& entry = json[device.name];
    entry = {{"resolution", {device.resolution.width, device.resolution.height}}, {"rms", device.rms}};
    if (device.jointRms > 0.0) {
      entry["jointRms"] = device.jointRms;
    }
    if (device.name == "projector") {
      json["projectorResolutionGuessed"] = report.isProjectorGuessed;
    }
  }
  if (report.devices.size() > 1) {
    json["rotationDefect"] = report.rotationDefect;
  }
  for (PlaneReport const& plane : report.planes) {
    json["planes"].push_back({{"points", plane.points}, {"rms", plane.rms}});
  }
  return json;
}

} // namespace vorn::mv
