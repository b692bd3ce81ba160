// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/calibration_report.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iomanip>
#include <sstream>

#include <opencv2/imgproc.hpp>

#include "tools/commands/size_option.hpp"

namespace vorn::tools {

using mv::CalibratedView;
using mv::Calibration;
using mv::DeviceReport;
using mv::PlaneReport;
using mv::rms;

namespace {

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
  DeviceReport const& model = calibration.report.devices[device];
  constexpr int width = 900;
  constexpr int header = 40;
  constexpr double typicalLength = 14; // plotted pixels of an arrow as long as the RMS error
  double const scale = static_cast<double>(width) / std::max(1, model.resolution.width);
  double const error = std::max(model.rms, 1e-6);
  double const enlargement = typicalLength / error;
  cv::Mat plot(header + cvRound(scale * model.resolution.height), width, CV_8UC3, cv::Scalar::all(24));
  constexpr int subPixelBits = 4;
  auto const fixed = [](cv::Point2d const& p) {
    constexpr double unit = 1 << subPixelBits;
    return cv::Point(cvRound(p.x * unit), cvRound(p.y * unit));
  };
  for (std::size_t v = 0; v < calibration.views.size(); ++v) {
    CalibratedView const& view = calibration.views[v];
    if (!view.isUsed()) {
      continue;
    }
    mv::ViewPoints const& points = view.devices[device];
    for (std::size_t i = 0; i < points.residuals.size(); ++i) {
      cv::Point2d const from = cv::Point2d(points.imgPnts[i]) * scale + cv::Point2d(0, header);
      cv::Point2d const to = from + cv::Point2d(points.residuals[i]) * enlargement;
      cv::line(plot, fixed(from), fixed(to), colourOf(v), 1, cv::LINE_AA, subPixelBits);
      cv::circle(plot, fixed(from), 24, colourOf(v), cv::FILLED, cv::LINE_AA, subPixelBits);
    }
  }
  std::ostringstream text;
  text << model.name << ": RMS " << std::setprecision(3) << model.rms << " px, errors enlarged "
       << std::lround(enlargement / scale) << " times";
  cv::putText(plot, text.str(), {10, 27}, cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar::all(230), 1,
              cv::LINE_AA);
  return plot;
}

/// The views' column heads of the table, and what stands in them: as many characters each.
struct Column {
  static constexpr int width = 12;

  std::string head;
  std::function<std::string(CalibratedView const&)> value;
  std::string total;
};

std::string pixels(double value) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(4) << value;
  return out.str();
}

std::vector<Column> columnsOf(Calibration const& calibration) {
  std::vector<Column> columns;
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    DeviceReport const& device = calibration.report.devices[d];
    columns.push_back(
        {"dots", [d](CalibratedView const& v) { return std::to_string(v.devices[d].imgPnts.size()); }, ""});
    columns.push_back({device.name + " px",
                       [d](CalibratedView const& v) { return pixels(rms(v.devices[d].residuals)); },
                       pixels(device.rms)});
    if (device.jointRms > 0.0) {
      columns.push_back({"joint px",
                         [d](CalibratedView const& v) { return pixels(rms(v.devices[d].jointResiduals)); },
                         pixels(device.jointRms)});
    }
  }
  std::vector<PlaneReport> const& planes = calibration.report.planes;
  for (std::size_t p = 0; p < planes.size(); ++p) {
    columns.push_back({"line " + std::to_string(p),
                       [p](CalibratedView const& v) { return std::to_string(v.lines[p].imgPnts.size()); },
                       std::to_string(planes[p].points)});
    columns.push_back({"plane mm", [p](CalibratedView const& v) { return pixels(v.lines[p].planeRms); },
                       pixels(planes[p].rms)});
  }
  return columns;
}

} // namespace

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
  for (CalibratedView const& view : calibration.views) {
    if (view.isUsed()) {
      row(view.name, [&](Column const& column) { return column.value(view); });
    } else {
      out << std::left << std::setw(nameWidth) << view.name << "  left out: " << view.reason << '\n';
    }
  }
  row("all", [](Column const& column) { return column.total; });
  for (CalibratedView const& view : calibration.views) {
    if (view.isUsed() && !view.remark.empty()) {
      out << view.name << ": " << view.remark << '\n';
    }
  }
  for (DeviceReport const& device : calibration.report.devices) {
    out << device.name << ' ' << sizeText(device.resolution)
        << (device.name == "projector" && calibration.report.isProjectorGuessed
                ? " as far as the decoded images tell (--projector sets it)"
                : "")
        << (device.isCalibrated ? "" : ": not calibrated, its error is half a pixel or more") << '\n';
  }
  if (calibration.report.devices.size() > 1) {
    out << "the averaged rotation is " << std::scientific << std::setprecision(1)
        << calibration.report.rotationDefect << " from a rotation\n";
  }
  return out.str();
}

cv::Mat plotResiduals(Calibration const& calibration) {
  std::vector<cv::Mat> plots;
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
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
