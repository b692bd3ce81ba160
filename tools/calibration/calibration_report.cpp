// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <functional>
#include <iomanip>
#include <sstream>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/camera_model.hpp>

#include "tools/calibration/calibration_session.hpp"
#include "tools/commands/size_option.hpp"

namespace vorn::tools {

using mv::CameraModel;

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

/// All views' joint residuals of one device.
std::vector<cv::Point2f> jointResiduals(Calibration const& calibration, std::size_t device) {
  std::vector<cv::Point2f> all;
  for (TargetView const& view : calibration.views) {
    if (view.isUsed()) {
      auto const& residuals = view.devices[device].jointResiduals;
      all.insert(all.end(), residuals.begin(), residuals.end());
    }
  }
  return all;
}

nlohmann::json toJson(CameraModel const& model) {
  cv::Size const& size = model.getResolution();
  return {{"resolution", {size.width, size.height}}, {"rms", model.getCalibError()}};
}

/// One laser plane in all views.
struct PlaneFigures {
  std::size_t points = 0;
  double rms = 0; ///< distance of the points, mm
};

std::vector<PlaneFigures> planeFigures(Calibration const& calibration) {
  std::vector<PlaneFigures> figures;
  for (TargetView const& view : calibration.views) {
    if (view.isUsed()) {
      figures.resize(view.lines.size());
      for (std::size_t p = 0; p < view.lines.size(); ++p) {
        ViewLine const& line = view.lines[p];
        figures[p].points += line.imgPnts.size();
        figures[p].rms += static_cast<double>(line.imgPnts.size()) * line.planeRms * line.planeRms;
      }
    }
  }
  for (PlaneFigures& plane : figures) {
    plane.rms = plane.points == 0 ? 0.0 : std::sqrt(plane.rms / static_cast<double>(plane.points));
  }
  return figures;
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
cv::Mat plotDevice(Calibration const& calibration, std::size_t device) {
  CameraModel const& model = calibration.devices[device].model;
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
    TargetView const& view = calibration.views[v];
    if (!view.isUsed()) {
      continue;
    }
    ViewPoints const& points = view.devices[device];
    for (std::size_t i = 0; i < points.residuals.size(); ++i) {
      cv::Point2d const from = cv::Point2d(points.imgPnts[i]) * scale + cv::Point2d(0, header);
      cv::Point2d const to = from + cv::Point2d(points.residuals[i]) * enlargement;
      cv::line(plot, fixed(from), fixed(to), colourOf(v), 1, cv::LINE_AA, subPixelBits);
      cv::circle(plot, fixed(from), 24, colourOf(v), cv::FILLED, cv::LINE_AA, subPixelBits);
    }
  }
  std::ostringstream text;
  text << calibration.devices[device].name << ": RMS " << std::setprecision(3) << model.getCalibError()
       << " px, errors enlarged " << std::lround(enlargement / scale) << " times";
  cv::putText(plot, text.str(), {10, 27}, cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar::all(230), 1,
              cv::LINE_AA);
  return plot;
}

/// The views' column heads of the table, and what stands in them: as many characters each.
struct Column {
  static constexpr int width = 12;

  std::string head;
  std::function<std::string(TargetView const&)> value;
  std::string total;
};

std::string pixels(double value) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(4) << value;
  return out.str();
}

std::vector<Column> columnsOf(Calibration const& calibration) {
  std::vector<Column> columns;
  for (std::size_t d = 0; d < calibration.devices.size(); ++d) {
    CalibratedDevice const& device = calibration.devices[d];
    columns.push_back(
        {"dots", [d](TargetView const& v) { return std::to_string(v.devices[d].imgPnts.size()); }, ""});
    columns.push_back({device.name + " px",
                       [d](TargetView const& v) { return pixels(rms(v.devices[d].residuals)); },
                       pixels(device.model.getCalibError())});
    std::vector<cv::Point2f> const joint = jointResiduals(calibration, d);
    if (!joint.empty()) {
      columns.push_back({"joint px",
                         [d](TargetView const& v) { return pixels(rms(v.devices[d].jointResiduals)); },
                         pixels(rms(joint))});
    }
  }
  std::vector<PlaneFigures> const planes = planeFigures(calibration);
  for (std::size_t p = 0; p < planes.size(); ++p) {
    columns.push_back({"line " + std::to_string(p),
                       [p](TargetView const& v) { return std::to_string(v.lines[p].imgPnts.size()); },
                       std::to_string(planes[p].points)});
    columns.push_back({"plane mm", [p](TargetView const& v) { return pixels(v.lines[p].planeRms); },
                       pixels(planes[p].rms)});
  }
  return columns;
}

} // namespace

nlohmann::json report(Calibration const& calibration) {
  nlohmann::json views = nlohmann::json::array();
  for (TargetView const& view : calibration.views) {
    nlohmann::json entry = {{"name", view.name}, {"used", view.isUsed()}};
    if (view.isUsed()) {
      for (std::size_t d = 0; d < view.devices.size(); ++d) {
        entry[calibration.devices[d].name] = toJson(view.devices[d]);
      }
      for (ViewLine const& line : view.lines) {
        entry["lines"].push_back({{"points", line.imgPnts.size()}, {"planeRms", line.planeRms}});
      }
      if (!view.remark.empty()) {
        entry["remark"] = view.remark;
      }
    } else {
      entry["reason"] = view.rejection;
    }
    views.push_back(entry);
  }
  nlohmann::json result = {{"views", views}};
  for (std::size_t d = 0; d < calibration.devices.size(); ++d) {
    CalibratedDevice const& device = calibration.devices[d];
    result[device.name] = toJson(device.model);
    std::vector<cv::Point2f> const joint = jointResiduals(calibration, d);
    if (!joint.empty()) {
      result[device.name]["jointRms"] = rms(joint);
    }
    if (device.name == "projector") {
      result["projectorResolutionGuessed"] = calibration.isProjectorGuessed;
    }
  }
  if (calibration.devices.size() > 1) {
    result["rotationDefect"] = calibration.rotationDefect;
  }
  for (PlaneFigures const& plane : planeFigures(calibration)) {
    result["planes"].push_back({{"points", plane.points}, {"rms", plane.rms}});
  }
  return result;
}

std::string table(Calibration const& calibration) {
  std::vector<Column> const columns = columnsOf(calibration);
  constexpr int nameWidth = 14;
  std::ostringstream out;
  auto const row = [&](std::string const& name, auto const& text) {
    out << std::left << std::setw(nameWidth) << name << std::right;
    for (Column const& column : columns) {
      // The head "projector px" fills a column.
      out << ' ' << std::setw(Column::width) << text(column);
    }
    out << '\n';
  };
  row("view", [](Column const& column) { return column.head; });
  for (TargetView const& view : calibration.views) {
    if (view.isUsed()) {
      row(view.name, [&](Column const& column) { return column.value(view); });
    } else {
      out << std::left << std::setw(nameWidth) << view.name << "  left out: " << view.rejection << '\n';
    }
  }
  row("all", [](Column const& column) { return column.total; });
  for (TargetView const& view : calibration.views) {
    if (view.isUsed() && !view.remark.empty()) {
      out << view.name << ": " << view.remark << '\n';
    }
  }
  for (CalibratedDevice const& device : calibration.devices) {
    out << device.name << ' ' << sizeText(device.model.getResolution())
        << (device.name == "projector" && calibration.isProjectorGuessed
                ? " as far as the decoded images tell (--projector sets it)"
                : "")
        << (device.model.isCalibrated() ? "" : ": not calibrated, its error is half a pixel or more") << '\n';
  }
  if (calibration.devices.size() > 1) {
    out << "the averaged rotation is " << std::scientific << std::setprecision(1)
        << calibration.rotationDefect << " from a rotation\n";
  }
  return out.str();
}

cv::Mat plotResiduals(Calibration const& calibration) {
  std::vector<cv::Mat> plots;
  for (std::size_t d = 0; d < calibration.devices.size(); ++d) {
    plots.push_back(plotDevice(calibration, d));
  }
  cv::Mat all;
  cv::vconcat(plots, all);
  // The shades of smoothed lines are most of the file; with sixteen of them it looks the same at half the
  // size.
  cv::bitwise_and(all, cv::Scalar::all(0xF0), all);
  return all;
}

} // namespace vorn::tools
