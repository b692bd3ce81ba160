// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/measure/color_map.hpp>
#include <vorn/mv/measure/histogram.hpp>

namespace vorn::mv {

/// How the numbers of a series are shown.
enum class SeriesKind {
  Points,
  Line,  ///< through the points in their order; broken where one is not finite
  Bars,  ///< from nought, as wide as their distance
  Arrows ///< from (x, y) along (dx, dy) times `Plot::arrowScale`
};

/// Numbers of a plot, under one name.
struct PlotSeries {
  std::string name; ///< in the legend; empty: not there
  SeriesKind kind = SeriesKind::Points;
  std::vector<double> x;
  std::vector<double> y;
  std::vector<double> dx; ///< arrows only
  std::vector<double> dy;
  std::optional<cv::Vec3b> color; ///< blue, green, red; else the next of `seriesColor`
  double size = 2.0;              ///< radius of points or width of lines, px: 0.1 to 100
};

/// An axis; ends that are NaN fit the numbers.
struct PlotAxis {
  std::string title;
  std::string unit;
  double low = std::numeric_limits<double>::quiet_NaN();
  double high = std::numeric_limits<double>::quiet_NaN();
};

/// A plot as data.
struct Plot {
  std::string title;
  PlotAxis x;
  PlotAxis y;
  std::vector<PlotSeries> series;
  /// A heat map behind the series, CV_32FC1, or empty: its values stand at the axes' integers, rows along y.
  cv::Mat heat;
  ColorMap heatMap = ColorMap::Turbo;
  PlotAxis heatScale; ///< its colours' title, unit and range
  /// One unit of x is as long as one of y, as in images.
  bool isEqualScale = false;
  /// y grows downwards, as in images.
  bool isYDown = false;
  double arrowScale = 1.0;
  /// The length of the arrow that stands in the legend as a scale, before `arrowScale`; 0: none.
  double arrowSample = 0.0;
  std::string arrowUnit;
  cv::Size size{900, 600}; ///< of the picture, px: 100 to 20000
  Ground ground = Ground::Light;
};

struct PlotDrawing {
  cv::Mat picture; ///< CV_8UC3
  /// Numbers left out because they are not finite.
  std::size_t notFinite = 0;
};

struct PlotSvg {
  std::string document;
  std::size_t notFinite = 0;
};

/// Draws axes with round numbers and units, grid, series, heat map with its scale, and a legend.
/// @throws Exception for a size out of its range, a series whose lists differ in length, an axis whose low
/// end
///         is not below its high end, or a heat map of another type
VORN_API PlotDrawing drawPlot(Plot const& plot);
/// The same as SVG, which looks the same. @throws Exception as `drawPlot`
VORN_API PlotSvg drawPlotSvg(Plot const& plot);

/// A histogram as a plot: a line a channel (blue, green, red where there are three).
VORN_API Plot plotOf(Histogram const& histogram, std::string const& title,
                     std::string const& unit = "grey values");

} // namespace vorn::mv
