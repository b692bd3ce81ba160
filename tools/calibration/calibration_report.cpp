// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/calibration_report.hpp"

#include <algorithm>
#include <functional>
#include <iomanip>
#include <sstream>

#include "tools/calibration/next_view_picture.hpp"
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

/// The place of a view among the used ones.
std::size_t numberOf(CalibratedView const& view, Calibration const& calibration) {
  std::size_t number = 0;
  for (CalibratedView const& other : calibration.views) {
    if (&other == &view) {
      break;
    }
    number += other.isUsed() ? 1 : 0;
  }
  return number;
}

/// What an adjustment says of the views: how exactly the projector was read, and how well its place agrees.
void addAdjusted(std::vector<Column>& columns, Calibration const& calibration) {
  if (!calibration.report.adjustment) {
    return;
  }
  mv::Adjustment const& adjustment = *calibration.report.adjustment;
  if (adjustment.isRead) {
    columns.push_back(
        {"transfer px",
         [&](CalibratedView const& v) { return pixels(adjustment.views[numberOf(v, calibration)].rms1); },
         ""});
  }
  if (!calibration.report.deviations.empty()) {
    columns.push_back({"agrees",
                       [&](CalibratedView const& v) {
                         std::ostringstream out;
                         out << std::fixed << std::setprecision(1)
                             << calibration.report.deviations[numberOf(v, calibration)].chi2;
                         return out.str();
                       },
                       ""});
  }
}

std::vector<Column> columnsOf(Calibration const& calibration) {
  std::vector<Column> columns;
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    DeviceReport const& device = calibration.report.devices[d];
    columns.push_back(
        {"points", [d](CalibratedView const& v) { return std::to_string(v.devices[d].imgPnts.size()); }, ""});
    columns.push_back({device.name + " px",
                       [d](CalibratedView const& v) { return pixels(rms(v.devices[d].residuals)); },
                       pixels(device.rms)});
    if (device.jointRms > 0.0) {
      columns.push_back({"joint px",
                         [d](CalibratedView const& v) { return pixels(rms(v.devices[d].jointResiduals)); },
                         pixels(device.jointRms)});
    }
  }
  addAdjusted(columns, calibration);
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

/// What an adjustment found out, in lines.
std::string adjustedText(mv::CalibrationReport const& report) {
  mv::Adjustment const& adjustment = *report.adjustment;
  std::ostringstream out;
  out << "noise of a point " << pixels(adjustment.noise.camera0) << " px";
  if (adjustment.models.size() > 1) {
    out << ", " << pixels(adjustment.noise.camera1) << " px in the " << report.devices[1].name
        << (adjustment.isRead ? " beyond that" : "");
  }
  out << "; residuals " << std::fixed << std::setprecision(2) << adjustment.s0 << " times the noise\n";
  mv::TargetShape const& shape = adjustment.shape;
  bool const isWarnedOf =
      std::any_of(report.findings.begin(), report.findings.end(),
                  [](mv::Finding const& finding) { return finding.cause == mv::FindingCause::BentTarget; });
  if (isWarnedOf) {
    out << "target: not flat, as the warning says\n";
  } else if (shape.kind == mv::TargetShape::Kind::Flat) {
    out << (report.shapeLimit.empty() ? "target: flat, as far as the views tell\n" : "");
  } else {
    out << std::setprecision(3) << "target: off its shape by " << shape.rms << " mm RMS, bent by "
        << shape.sagX << " mm along x and " << shape.sagY << " mm along y; taken into account\n";
  }
  if (!report.shapeLimit.empty()) {
    out << report.shapeLimit << '\n';
  }
  for (std::size_t p = 0; p < report.planes.size(); ++p) {
    out << "laser plane " << p << " known to " << pixels(report.planes[p].sigma) << " mm along its normal\n";
  }
  if (!report.untested.empty()) {
    out << "not to be told from these views:";
    for (mv::FindingCause const cause : report.untested) {
      out << (cause == report.untested.front() ? " " : ", ") << mv::nameOf(cause);
    }
    out << '\n';
  }
  if (report.predicted && report.predicted->barCount > 0) {
    constexpr double micrometres = 1000;
    constexpr double ppm = 1e6;
    mv::PredictedError const& error = *report.predicted;
    out << std::setprecision(0) << "expected error where the target was, at depths of "
        << error.volume.nearest << " to " << error.volume.farthest << " mm: shape " << std::setprecision(1)
        << micrometres * error.rigid << " um, scale " << ppm * error.scale << " ppm, lengths of "
        << std::setprecision(0) << error.barLength << " mm " << std::setprecision(1)
        << micrometres * error.bar << " um, beside the pitch's own\n";
    if (report.predictedBeyond) {
      mv::PredictedError const& beyond = *report.predictedBeyond;
      out << std::setprecision(0) << "expected error at " << beyond.volume.nearest << " to "
          << beyond.volume.farthest << " mm: shape " << std::setprecision(1) << micrometres * beyond.rigid
          << " um\n";
    }
  }
  if (report.nextView) {
    out << nextViewText(*report.nextView) << '\n';
  } else if (!report.noNextView.empty()) {
    out << "no next view to propose: " << report.noNextView << '\n';
  }
  return out.str();
}

/// Whether an adjustment left a device as it was given.
bool isHeld(std::size_t device, mv::CalibrationReport const& report) {
  char const number = static_cast<char>('0' + device);
  return report.adjustment &&
         std::none_of(report.adjustment->parameters.begin(), report.adjustment->parameters.end(),
                      [number](std::string const& name) { return name.back() == number; });
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
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    DeviceReport const& device = calibration.report.devices[d];
    out << device.name << ' ' << sizeText(device.resolution)
        << (isHeld(d, calibration.report) ? ", held as it was given" : "")
        << (device.name == "projector" && calibration.report.isProjectorGuessed
                ? " as far as the decoded images tell (--projector sets it)"
                : "")
        << (device.isCalibrated ? "" : ": not calibrated, its error is half a pixel or more") << '\n';
  }
  if (calibration.report.adjustment) {
    out << adjustedText(calibration.report);
  } else if (calibration.report.devices.size() > 1) {
    out << "the averaged rotation is " << std::scientific << std::setprecision(1)
        << calibration.report.rotationDefect << " from a rotation\n";
  }
  return out.str();
}

bool isLeftOut(mv::Finding const& finding, Calibration const& calibration) {
  return finding.view >= 0 && !calibration.views[static_cast<std::size_t>(finding.view)].isUsed();
}

} // namespace vorn::tools
