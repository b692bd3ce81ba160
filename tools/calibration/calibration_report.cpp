// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/calibration_report.hpp"

#include <functional>
#include <iomanip>
#include <sstream>

#include "tools/commands/size_option.hpp"

namespace vorn::tools {

using mv::CalibratedView;
using mv::Calibration;
using mv::DeviceReport;
using mv::PlaneReport;
using mv::rms;

namespace {

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

} // namespace vorn::tools
