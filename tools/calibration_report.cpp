// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/camera_model.hpp>

#include "tools/calibration_session.hpp"

namespace vorn::tools {

using mv::CameraModel;

namespace {

nlohmann::json toJson(ViewPoints const& points) {
  double worst = 0;
  for (cv::Point2f const& residual : points.residuals) {
    worst = std::max(worst, cv::norm(residual));
  }
  return {{"points", points.imgPnts.size()}, {"rms", points.rms()}, {"worst", worst}};
}

nlohmann::json toJson(CameraModel const& model) {
  cv::Size const& size = model.getResolution();
  return {{"resolution", {size.width, size.height}}, {"rms", model.getCalibError()}};
}

cv::Scalar colourOf(std::size_t view) {
  // Steps of the golden angle keep neighbouring views apart in hue.
  constexpr double goldenAngle = 137.508;
  auto const hue = static_cast<std::uint8_t>(std::fmod(static_cast<double>(view) * goldenAngle, 360.0) / 2);
  cv::Mat const hsv(1, 1, CV_8UC3, cv::Scalar(hue, 200, 230));
  cv::Mat bgr;
  cv::cvtColor(hsv, bgr, cv::COLOR_HSV2BGR);
  auto const pixel = bgr.at<cv::Vec3b>(0, 0);
  return {static_cast<double>(pixel[0]), static_cast<double>(pixel[1]), static_cast<double>(pixel[2])};
}

/// The residuals over one device's image.
cv::Mat plotDevice(Calibration const& calibration, ViewPoints CalibrationView::*device,
                   CameraModel const& model, std::string const& name) {
  constexpr int width = 900;
  constexpr int header = 40;
  constexpr double typicalLength = 14; // plotted pixels of an arrow as long as the RMS error
  double const scale = static_cast<double>(width) / std::max(1, model.getResolution().width);
  double const error = std::max(model.getCalibError(), 1e-6);
  double const enlargement = typicalLength / error;
  cv::Mat plot(header + cvRound(scale * model.getResolution().height), width, CV_8UC3, cv::Scalar::all(24));
  constexpr int subPixelBits = 4;
  auto const fixed = [](cv::Point2d const& p) {
    constexpr double unit = 1 << subPixelBits;
    return cv::Point(cvRound(p.x * unit), cvRound(p.y * unit));
  };
  for (std::size_t v = 0; v < calibration.views.size(); ++v) {
    CalibrationView const& view = calibration.views[v];
    ViewPoints const& points = view.*device;
    for (std::size_t i = 0; view.rejection.empty() && i < points.residuals.size(); ++i) {
      cv::Point2d const from = cv::Point2d(points.imgPnts[i]) * scale + cv::Point2d(0, header);
      cv::Point2d const to = from + cv::Point2d(points.residuals[i]) * enlargement;
      cv::line(plot, fixed(from), fixed(to), colourOf(v), 1, cv::LINE_AA, subPixelBits);
      cv::circle(plot, fixed(from), 24, colourOf(v), cv::FILLED, cv::LINE_AA, subPixelBits);
    }
  }
  std::ostringstream text;
  text << name << ": RMS " << std::setprecision(3) << model.getCalibError() << " px, errors enlarged "
       << std::lround(enlargement / scale) << " times";
  cv::putText(plot, text.str(), {10, 27}, cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar::all(230), 1,
              cv::LINE_AA);
  return plot;
}

} // namespace

nlohmann::json report(Calibration const& calibration) {
  nlohmann::json views = nlohmann::json::array();
  for (CalibrationView const& view : calibration.views) {
    nlohmann::json entry = {{"name", view.name}, {"used", view.rejection.empty()}};
    if (view.rejection.empty()) {
      entry["camera"] = toJson(view.camera);
      entry["projector"] = toJson(view.projector);
    } else {
      entry["reason"] = view.rejection;
    }
    views.push_back(entry);
  }
  return {{"camera", toJson(calibration.scanner.getCameraModel())},
          {"projector", toJson(calibration.scanner.getProjectorModel())},
          {"projectorResolutionGuessed", calibration.isProjectorGuessed},
          {"rotationDefect", calibration.rotationDefect},
          {"views", views}};
}

std::string table(Calibration const& calibration) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(4);
  out << "view            dots  lit   camera px  projector px\n";
  for (CalibrationView const& view : calibration.views) {
    out << std::left << std::setw(14) << view.name << std::right;
    if (view.rejection.empty()) {
      out << std::setw(6) << view.camera.imgPnts.size() << std::setw(5) << view.projector.imgPnts.size()
          << std::setw(12) << view.camera.rms() << std::setw(14) << view.projector.rms() << '\n';
    } else {
      out << "  left out: " << view.rejection << '\n';
    }
  }
  CameraModel const& camera = calibration.scanner.getCameraModel();
  CameraModel const& projector = calibration.scanner.getProjectorModel();
  out << "all           " << std::setw(23) << camera.getCalibError() << std::setw(14)
      << projector.getCalibError() << '\n';
  out << "projector " << projector.getResolution().width << " x " << projector.getResolution().height
      << (calibration.isProjectorGuessed ? " as far as the decoded images tell (--projector sets it)" : "")
      << "; the averaged rotation is " << std::scientific << std::setprecision(1)
      << calibration.rotationDefect << " from a rotation\n";
  return out.str();
}

cv::Mat plotResiduals(Calibration const& calibration) {
  cv::Mat const camera =
      plotDevice(calibration, &CalibrationView::camera, calibration.scanner.getCameraModel(), "camera");
  cv::Mat const projector = plotDevice(calibration, &CalibrationView::projector,
                                       calibration.scanner.getProjectorModel(), "projector");
  cv::Mat both;
  cv::vconcat(camera, projector, both);
  return both;
}

} // namespace vorn::tools
