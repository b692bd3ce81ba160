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
  Points, ///< dots at (x, y)
  Line,   ///< through the points in their order; broken where one is not finite
  Bars,   ///< from nought, as wide as their distance
  Arrows  ///< from (x, y) along (dx, dy) times `Plot::arrowScale`
};

/// Numbers of a plot, under one name.
struct PlotSeries {
  std::string name;                     ///< in the legend; empty: not there
  SeriesKind kind = SeriesKind::Points; ///< how they are shown
  std::vector<double> x;                ///< in the axis' unit; what is not finite is left out and counted
  std::vector<double> y;                ///< as many as x
  std::vector<double> dx;               ///< arrows only: as many as x
  std::vector<double> dy;               ///< the same along y
  std::optional<cv::Vec3b> color;       ///< blue, green, red; else the next of `seriesColor`
  double size = 2.0;                    ///< radius of points or width of lines, px: 0.1 to 100
};

/// An axis; ends that are NaN fit the numbers.
struct PlotAxis {
  std::string title;                                      ///< UTF-8; empty: none
  std::string unit;                                       ///< stands behind the title; empty: none
  double low = std::numeric_limits<double>::quiet_NaN();  ///< lower end, below `high`; not infinite
  double high = std::numeric_limits<double>::quiet_NaN(); ///< upper end; not infinite
  /// Names that stand at 0, 1, 2 ... in place of numbers, UTF-8, every second, third ... where not all of
  /// them have room; empty: numbers.
  std::vector<std::string> labels = {};
};

/// A plot as data.
struct Plot {
  std::string title;              ///< above the plot, UTF-8; empty: none
  PlotAxis x;                     ///< the axis across
  PlotAxis y;                     ///< the upright axis
  std::vector<PlotSeries> series; ///< drawn in this order, later ones on top
  /// A heat map behind the series, CV_32FC1, or empty: its values stand at the axes' integers, rows along y.
  cv::Mat heat;
  ColorMap heatMap = ColorMap::Turbo; ///< its colours
  PlotAxis heatScale;                 ///< its colours' title, unit and range
  /// One unit of x is as long as one of y, as in images.
  bool isEqualScale = false;
  /// y grows downwards, as in images.
  bool isYDown = false;
  /// Units of the axes that an arrow is long for each unit of dx and dy; finite.
  double arrowScale = 1.0;
  /// The length of the arrow that stands in the legend as a scale, before `arrowScale`; 0: none.
  double arrowSample = 0.0;
  /// The unit that stands behind `arrowSample` in the legend.
  std::string arrowUnit;
  cv::Size size{900, 600};       ///< of the picture, px: 100 to 20000
  Ground ground = Ground::Light; ///< what the plot stands on
};

/// A plot as a picture.
struct PlotDrawing {
  cv::Mat picture; ///< CV_8UC3, of `Plot::size`
  /// Points of the series left out because a number of theirs is not finite.
  std::size_t notFinite = 0;
};

/// A plot as SVG.
struct PlotSvg {
  std::string document;      ///< a whole SVG file, UTF-8
  std::size_t notFinite = 0; ///< as in `PlotDrawing`
};

/// Draws axes with round numbers and units, grid, series, heat map with its scale, and a legend.
/// Where the legend has no room for all names, it says how many more there are.
/// @throws Exception for a size out of its range, a series whose lists differ in length, an axis whose low
///         end is not below its high end, or a heat map of another type
VORN_API PlotDrawing drawPlot(Plot const& plot);
/// The same as SVG, which looks the same. @throws Exception as `drawPlot`
VORN_API PlotSvg drawPlotSvg(Plot const& plot);

/// Several plots in one picture, row after row, each of its own size.
/// @param columns plots a row, 1 or more
/// @throws Exception as `drawPlot`, for no plots, for less than one column, and for a picture of more than
///         32000 px on one side
VORN_API PlotDrawing drawPlots(std::vector<Plot> const& plots, int columns = 1);
/// The same as SVG, which looks the same. @throws Exception as `drawPlots`
VORN_API PlotSvg drawPlotsSvg(std::vector<Plot> const& plots, int columns = 1);

/// A histogram as a plot: a line a channel (blue, green, red where there are three).
VORN_API Plot plotOf(Histogram const& histogram, std::string const& title,
                     std::string const& unit = "grey values");

} // namespace vorn::mv
