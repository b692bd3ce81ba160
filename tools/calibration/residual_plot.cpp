// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/residual_plot.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace vorn::tools {

using mv::CalibratedView;
using mv::Calibration;
using mv::DeviceReport;

namespace {

/// The number of 1, 2 or 5 times a power of ten that is nearest above half a value.
double roundSample(double value) {
  double const decade = std::pow(10.0, std::floor(std::log10(value)));
  for (double const factor : {1.0, 2.0, 5.0}) {
    if (factor * decade >= 0.8 * value) {
      return factor * decade;
    }
  }
  return 10.0 * decade;
}

std::string titleOf(DeviceReport const& device, std::size_t views, std::size_t points) {
  std::ostringstream text;
  text.precision(3);
  text << device.name << ": RMS " << device.rms << " px over " << points << " dots in " << views << " views";
  return text.str();
}

mv::Plot plotOf(Calibration const& calibration, std::size_t device, mv::Ground ground) {
  DeviceReport const& model = calibration.report.devices[device];
  constexpr int width = 1100;
  constexpr int besides = 260; // what axes and legend take, about
  constexpr int above = 80;
  constexpr double typicalLength = 13.0; // px of an arrow as long as the RMS error
  double const scale = static_cast<double>(width - besides) / std::max(1, model.resolution.width);
  double const error = std::max(model.rms, 1e-9);
  mv::Plot plot;
  plot.ground = ground;
  plot.isEqualScale = true;
  plot.isYDown = true;
  plot.x = {"x", "px", -0.5, model.resolution.width - 0.5};
  plot.y = {"y", "px", -0.5, model.resolution.height - 0.5};
  plot.size = {width, std::clamp(above + cvRound(scale * model.resolution.height), 300, 2000)};
  plot.arrowScale = typicalLength / scale / error;
  plot.arrowSample = roundSample(2.0 * error);
  plot.arrowUnit = "px";
  std::size_t points = 0;
  for (CalibratedView const& view : calibration.views) {
    if (!view.isUsed()) {
      continue;
    }
    mv::ViewPoints const& seen = view.devices[device];
    mv::PlotSeries arrows;
    arrows.kind = mv::SeriesKind::Arrows;
    arrows.name = view.name;
    arrows.size = 1.2;
    for (std::size_t i = 0; i < seen.residuals.size(); ++i) {
      arrows.x.push_back(static_cast<double>(seen.imgPnts[i].x));
      arrows.y.push_back(static_cast<double>(seen.imgPnts[i].y));
      arrows.dx.push_back(static_cast<double>(seen.residuals[i].x));
      arrows.dy.push_back(static_cast<double>(seen.residuals[i].y));
    }
    points += arrows.x.size();
    plot.series.push_back(std::move(arrows));
  }
  plot.title = titleOf(model, plot.series.size(), points);
  return plot;
}

} // namespace

std::vector<mv::Plot> residualPlots(Calibration const& calibration, mv::Ground ground) {
  std::vector<mv::Plot> plots;
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    plots.push_back(plotOf(calibration, d, ground));
  }
  return plots;
}

} // namespace vorn::tools
