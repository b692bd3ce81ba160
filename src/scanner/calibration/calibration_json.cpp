// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/scanner/calibration.hpp>

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
  if (!points.strayPnts.empty()) {
    json["strays"] = points.strayPnts.size();
  }
  return json;
}

/// Adds a figure that the images tell.
void add(nlohmann::json& json, char const* name, double value) {
  if (std::isfinite(value)) {
    json[name] = value;
  }
}

nlohmann::json toJson(SequenceFigures const& figures) {
  nlohmann::json json = nlohmann::json::object();
  add(json, "secondHarmonic", figures.secondHarmonic);
  add(json, "flicker", figures.flicker);
  add(json, "bands", figures.bands);
  add(json, "bandDepth", figures.bandDepth);
  add(json, "clipped", figures.clipped);
  add(json, "amplitude", figures.amplitude);
  add(json, "contrast", figures.contrast);
  add(json, "staircase", figures.staircase);
  add(json, "ripple", figures.ripple);
  add(json, "creep", figures.creep);
  return json;
}

nlohmann::json toJson(ViewFigures const& figures) {
  nlohmann::json json = {{"columns", toJson(figures.columns)}, {"rows", toJson(figures.rows)}};
  add(json, "targetClipped", figures.targetClipped);
  add(json, "cameraBlur", figures.cameraBlur);
  add(json, "movedBetween", figures.movedBetween);
  add(json, "movedBefore", figures.movedBefore);
  return json;
}

nlohmann::json toJson(CalibratedView const& view, CalibrationReport const& report) {
  nlohmann::json entry = {{"name", view.name}, {"used", view.isUsed()}};
  if (view.figures) {
    entry["images"] = toJson(*view.figures);
  }
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

constexpr double degrees = 180.0 / CV_PI;

nlohmann::json toJson(TransformDeviation const& deviation) {
  return {{"chi2", deviation.chi2},
          {"turn", cv::norm(deviation.turn) * degrees},
          {"shift", cv::norm(deviation.shift)}};
}

nlohmann::json toJson(TargetShape const& shape) {
  static char const* const kinds[] = {"flat", "smooth", "dots"};
  return {{"kind", kinds[static_cast<std::size_t>(shape.kind)]},
          {"rms", shape.rms},
          {"sagX", shape.sagX},
          {"sagY", shape.sagY},
          {"twist", shape.twist},
          {"significance", shape.significance},
          {"flatS0", shape.flatS0}};
}

/// The figures of an adjustment, with those of its views among the entries of all views.
nlohmann::json toJson(Adjustment const& adjustment, CalibrationReport const& report) {
  nlohmann::json json = {{"s0", adjustment.s0}, {"shape", toJson(adjustment.shape)}};
  json["noise"][report.devices[0].name] = adjustment.noise.camera0;
  if (adjustment.models.size() > 1) {
    json["noise"][report.devices[1].name] = adjustment.noise.camera1;
  }
  for (std::size_t i = 0; i < adjustment.parameters.size(); ++i) {
    json["sigmas"][adjustment.parameters[i]] = adjustment.sigmas[i];
  }
  return json;
}

nlohmann::json toJson(Finding const& finding, Calibration const& calibration) {
  nlohmann::json json = {{"cause", nameOf(finding.cause)}, {"value", finding.value},
                         {"limit", finding.limit},         {"text", finding.text},
                         {"advice", finding.advice},       {"grave", finding.isGrave}};
  if (finding.view >= 0) {
    json["view"] = calibration.views[static_cast<std::size_t>(finding.view)].name;
  }
  if (finding.device >= 0) {
    json["device"] = calibration.report.devices[static_cast<std::size_t>(finding.device)].name;
  }
  return json;
}

nlohmann::json toJson(PredictedError const& predicted) {
  return {{"raw", predicted.raw},
          {"rigid", predicted.rigid},
          {"scale", predicted.scale},
          {"bar", predicted.bar},
          {"barLength", predicted.barLength},
          {"worst", predicted.worst},
          {"nearest", predicted.volume.nearest},
          {"farthest", predicted.volume.farthest},
          {"worstPlace", {predicted.worstPlace.x, predicted.worstPlace.y, predicted.worstPlace.z}}};
}

nlohmann::json toJson(NextView const& next) {
  nlohmann::json rows = nlohmann::json::array();
  for (int row = 0; row < 4; ++row) {
    cv::Matx14d const values = next.cam_from_target.row(row);
    rows.push_back({values(0), values(1), values(2), values(3)});
  }
  return {{"cameraFromTarget", std::move(rows)},
          {"pixel", {next.pixel.x, next.pixel.y}},
          {"distance", next.distance},
          {"tilt", next.tilt},
          {"direction", next.direction},
          {"roll", next.roll},
          {"dots", next.dotCount},
          {"tried", next.triedCount},
          {"before", toJson(next.before)},
          {"after", toJson(next.after)}};
}

/// Adds to the entries of the used views what an adjustment says of them.
void addAdjusted(nlohmann::json& views, CalibrationReport const& report) {
  std::size_t number = 0;
  for (nlohmann::json& entry : views) {
    if (entry["used"]) {
      ViewAdjustment const& view = report.adjustment->views[number];
      if (report.adjustment->isRead) {
        entry["transferRms"] = view.rms1;
      }
      if (number < report.deviations.size()) {
        entry["agreement"] = toJson(report.deviations[number]);
      }
      ++number;
    }
  }
}

} // namespace

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
  if (report.adjustment) {
    addAdjusted(json["views"], report);
    json["adjustment"] = toJson(*report.adjustment, report);
    json["findings"] = nlohmann::json::array();
    json["untested"] = nlohmann::json::array();
  }
  if (report.predicted) {
    json["predicted"] = toJson(*report.predicted);
  }
  if (report.predictedBeyond) {
    json["predictedBeyond"] = toJson(*report.predictedBeyond);
  }
  if (report.nextView) {
    json["nextView"] = toJson(*report.nextView);
  }
  if (!report.noNextView.empty()) {
    json["noNextView"] = report.noNextView;
  }
  for (FindingCause const cause : report.untested) {
    json["untested"].push_back(nameOf(cause));
  }
  if (!report.shapeLimit.empty()) {
    json["shapeLimit"] = report.shapeLimit;
  }
  if (!report.notAdjusted.empty()) {
    json["notAdjusted"] = report.notAdjusted;
  }
  for (Finding const& finding : report.findings) {
    json["findings"].push_back(toJson(finding, calibration));
  }
  for (PlaneReport const& plane : report.planes) {
    json["planes"].push_back({{"points", plane.points}, {"rms", plane.rms}});
    if (report.adjustment) {
      json["planes"].back()["sigma"] = plane.sigma;
    }
  }
  return json;
}

} // namespace vorn::mv
