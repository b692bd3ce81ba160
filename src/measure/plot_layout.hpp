// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <string>

#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/plot.hpp>

#include "measure/legend.hpp"
#include "measure/ticks.hpp"

namespace vorn::mv {

/// The numbers between two ends; none before the first was added.
struct PlotRange {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();
  /// Widens the range; what is not finite changes nothing.
  void add(double value);
  double span() const { return high - low; }
};

/// Where everything of a plot lies in its picture.
struct PlotLayout {
  static constexpr int gap = 8;
  static constexpr int tickLength = 5;
  static constexpr int swatch = 22; ///< of the legend

  /// @param plot one that `drawPlot` takes
  /// @param corner of the plot in the picture
  PlotLayout(Plot const& plot, cv::Point corner);

  /// Where numbers stand.
  cv::Point2d place(double x, double y) const;
  /// The heat map's colours with their numbers.
  ColorScale heatScale() const;
  /// How high the heat map's colours stand beside it.
  int heatScaleHeight() const;
  /// What stands below the arrow of the legend.
  std::string arrowText() const;
  /// The length of that arrow, px.
  double arrowLength() const;

  Plot const& plot;
  cv::Rect whole; ///< the plot
  cv::Rect area;  ///< within its axes
  PlotRange x, y, heat;
  Ticks xTicks, yTicks;
  std::size_t notFinite = 0; ///< points left out

private:
  void measure();
  void layOut();
  void makeEqual();
};

} // namespace vorn::mv
