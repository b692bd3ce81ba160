// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/residual_plots.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include "tools/calibration/plot_range.hpp"

namespace vorn::tools {

using mv::CalibratedView;
using mv::Calibration;
using mv::DeviceReport;
using mv::ViewPoints;

namespace {

/// The number of 1, 2 or 5 times a power of ten that is nearest above most of a value.
double roundSample(double value) {
  double const decade = std::pow(10.0, std::floor(std::log10(value)));
  for (double const factor : {1.0, 2.0, 5.0}) {
    if (factor * decade >= 0.8 * value) {
      return factor * decade;
    }
  }
  return 10.0 * decade;
}

std::string shortText(double value) {
  std::ostringstream text;
  text.precision(3);
  text << value;
  return text.str();
}

mv::PlotSeries arrowSeries(std::string const& name) {
  mv::PlotSeries arrows;
  arrows.kind = mv::SeriesKind::Arrows;
  arrows.name = name;
  arrows.size = 1.2;
  return arrows;
}

void addArrow(mv::PlotSeries& arrows, cv::Point2d const& at, cv::Point2d const& along) {
  arrows.x.push_back(at.x);
  arrows.y.push_back(at.y);
  arrows.dx.push_back(along.x);
  arrows.dy.push_back(along.y);
}

/// A plot over a device's image without anything in it yet.
/// @param besides       what axes and legend take of the width, about, px
/// @param typicalLength of an arrow as long as the device's RMS error, pixels of the device
mv::Plot imagePlot(DeviceReport const& device, mv::Ground ground, int width, int besides,
                   double typicalLength) {
  constexpr int above = 80;
  double const scale = static_cast<double>(width - besides) / std::max(1, device.resolution.width);
  double const error = std::max(device.rms, 1e-9);
  mv::Plot plot;
  plot.ground = ground;
  plot.isEqualScale = true;
  plot.isYDown = true;
  plot.x = {"x", "px", -0.5, device.resolution.width - 0.5};
  plot.y = {"y", "px", -0.5, device.resolution.height - 0.5};
  plot.size = {width, std::clamp(above + cvRound(scale * device.resolution.height), 300, 2000)};
  plot.arrowScale = typicalLength / error;
  plot.arrowSample = roundSample(error);
  plot.arrowUnit = "px";
  return plot;
}

/// Means of errors in the cells of an image.
class MeanErrors {
public:
  /// @param dots that will be added
  MeanErrors(cv::Size const& image, std::size_t dots) {
    constexpr double dotsACell = 12.0; // enough that the mean of a cell is well below the error of a dot
    constexpr double fewest = 12.0;
    constexpr double most = 400.0; // more arrows cannot be told apart
    double const cells = std::clamp(static_cast<double>(dots) / dotsACell, fewest, most);
    cellSize = std::max(1.0, std::sqrt(image.area() / cells));
    count_ = {std::max(1, cvCeil(image.width / cellSize)), std::max(1, cvCeil(image.height / cellSize))};
    cells_.resize(static_cast<std::size_t>(count_.area()));
  }

  void add(cv::Point2d const& at, cv::Point2d const& error) {
    // Pixels of a projector may lie beside its image.
    int const col = std::clamp(cvFloor((at.x + 0.5) / cellSize), 0, count_.width - 1);
    int const row = std::clamp(cvFloor((at.y + 0.5) / cellSize), 0, count_.height - 1);
    Cell& cell = cells_[static_cast<std::size_t>(row * count_.width + col)];
    cell.dots += 1.0;
    cell.place += at;
    cell.error += error;
    cell.squares += error.dot(error);
  }

  /// Into which of two series each cell's arrow goes: what scatter explains, and what it does not.
  void draw(mv::PlotSeries& scatter, mv::PlotSeries& systematic) const {
    constexpr double beyond = 4.0; // standard deviations of a mean: 1 of 3000 cells by chance
    double const sigma = scatterOfDot();
    for (Cell const& cell : cells_) {
      if (cell.dots > 0.0) {
        cv::Point2d const mean = cell.error * (1.0 / cell.dots);
        bool const isBeyond = std::hypot(mean.x, mean.y) * std::sqrt(cell.dots) > beyond * sigma;
        addArrow(isBeyond ? systematic : scatter, cell.place * (1.0 / cell.dots), mean);
      }
    }
  }

  double cellSize = 1.0; ///< pixels

private:
  struct Cell {
    double dots = 0.0;
    cv::Point2d place, error; ///< sums
    double squares = 0.0;     ///< sum of the errors' squared lengths
  };

  /// One standard deviation of a dot's error along one axis, by how dots differ within cells.
  double scatterOfDot() const {
    double sum = 0.0;
    double freedoms = 0.0;
    for (Cell const& cell : cells_) {
      if (cell.dots > 1.0) {
        sum += cell.squares - cell.error.dot(cell.error) / cell.dots;
        freedoms += 2.0 * (cell.dots - 1.0);
      }
    }
    return freedoms > 0.0 ? std::sqrt(std::max(0.0, sum) / freedoms)
                          : std::numeric_limits<double>::infinity();
  }

  cv::Size count_;
  std::vector<Cell> cells_;
};

/// The used views' points on one device.
std::vector<ViewPoints const*> usedPoints(Calibration const& calibration, std::size_t device) {
  std::vector<ViewPoints const*> used;
  for (CalibratedView const& view : calibration.views) {
    if (view.isUsed()) {
      used.push_back(&view.devices[device]);
    }
  }
  return used;
}

mv::Plot meanErrorPlot(Calibration const& calibration, std::size_t device, mv::Ground ground) {
  DeviceReport const& report = calibration.report.devices[device];
  std::vector<ViewPoints const*> const views = usedPoints(calibration, device);
  std::size_t const dots = std::accumulate(
      views.begin(), views.end(), std::size_t(0),
      [](std::size_t sum, ViewPoints const* points) { return sum + points->residuals.size(); });
  MeanErrors means(report.resolution, dots);
  for (ViewPoints const* points : views) {
    for (std::size_t i = 0; i < points->residuals.size(); ++i) {
      means.add(points->imgPnts[i], points->residuals[i]);
    }
  }
  constexpr int width = 900;
  constexpr int besides = 260;
  mv::Plot plot = imagePlot(report, ground, width, besides, means.cellSize);
  mv::PlotSeries scatter = arrowSeries("as the points scatter");
  mv::PlotSeries systematic = arrowSeries("systematic");
  means.draw(scatter, systematic);
  plot.title = report.name + ": mean error of points nearby; of single points RMS " + shortText(report.rms) +
               " px over " + std::to_string(dots) + " points in " + std::to_string(views.size()) + " views";
  plot.series = {scatter, systematic};
  return plot;
}

mv::Plot viewErrorPlot(DeviceReport const& report, CalibratedView const& view, ViewPoints const& points,
                       mv::Ground ground) {
  constexpr int width = 900; // as the plots beside it
  constexpr int besides = 170;
  constexpr double typicalShare = 0.018; // of the image's width
  mv::Plot plot = imagePlot(report, ground, width, besides, typicalShare * report.resolution.width);
  plot.title = view.name + ", " + report.name + ": RMS " + shortText(mv::rms(points.residuals)) +
               " px over " + std::to_string(points.residuals.size()) + " points";
  mv::PlotSeries arrows = arrowSeries("");
  for (std::size_t i = 0; i < points.residuals.size(); ++i) {
    addArrow(arrows, points.imgPnts[i], points.residuals[i]);
  }
  plot.series.push_back(std::move(arrows));
  if (!points.strayPnts.empty()) {
    mv::PlotSeries stray;
    stray.name = "left out";
    stray.size = 4;
    for (cv::Point2f const& p : points.strayPnts) {
      stray.x.push_back(static_cast<double>(p.x));
      stray.y.push_back(static_cast<double>(p.y));
    }
    plot.series.push_back(std::move(stray));
  }
  return plot;
}

/// The largest ratio of a view's error to that of all views, over the devices.
double conspicuity(Calibration const& calibration, CalibratedView const& view) {
  double largest = 0.0;
  for (std::size_t d = 0; d < view.devices.size(); ++d) {
    largest = std::max(largest, mv::rms(view.devices[d].residuals) /
                                    std::max(calibration.report.devices[d].rms, 1e-12));
  }
  return largest;
}

} // namespace

std::vector<mv::Plot> meanErrorPlots(Calibration const& calibration, mv::Ground ground) {
  std::vector<mv::Plot> plots;
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    plots.push_back(meanErrorPlot(calibration, d, ground));
  }
  return plots;
}

std::vector<mv::Plot> viewErrorPlots(Calibration const& calibration, mv::Ground ground, std::size_t most) {
  std::vector<CalibratedView const*> views;
  for (CalibratedView const& view : calibration.views) {
    if (view.isUsed()) {
      views.push_back(&view);
    }
  }
  auto const isWorse = [&](CalibratedView const* a, CalibratedView const* b) {
    return conspicuity(calibration, *a) > conspicuity(calibration, *b);
  };
  if (views.size() > most) {
    std::stable_sort(views.begin(), views.end(), isWorse);
    views.resize(most);
    std::sort(views.begin(), views.end()); // as they stand in the calibration
  }
  std::vector<mv::Plot> plots;
  for (CalibratedView const* view : views) {
    for (std::size_t d = 0; d < view->devices.size(); ++d) {
      plots.push_back(viewErrorPlot(calibration.report.devices[d], *view, view->devices[d], ground));
    }
  }
  return plots;
}

mv::Plot errorsByViewPlot(Calibration const& calibration, mv::Ground ground) {
  mv::Plot plot;
  plot.ground = ground;
  plot.size = {900, 420};
  plot.title = "errors of the views";
  plot.y.title = "RMS error";
  plot.y.unit = "px";
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    mv::PlotSeries series;
    series.name = calibration.report.devices[d].name;
    series.size = 5;
    for (std::size_t i = 0; i < calibration.views.size(); ++i) {
      CalibratedView const& view = calibration.views[i];
      if (view.isUsed()) {
        series.x.push_back(static_cast<double>(i));
        series.y.push_back(mv::rms(view.devices[d].residuals));
      }
    }
    plot.series.push_back(std::move(series));
  }
  for (CalibratedView const& view : calibration.views) {
    plot.x.labels.push_back(view.name);
  }
  fitFromNought(plot);
  return plot;
}

} // namespace vorn::tools
