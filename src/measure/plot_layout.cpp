// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/plot_layout.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

/// The ends of an axis: as told, or the numbers with some air around.
PlotRange fitted(PlotRange range, PlotAxis const& axis, double air) {
  if (range.low > range.high) {
    range = {0.0, 1.0};
  }
  double const room = range.span() > 0.0 ? air * range.span() : std::max(0.5, std::abs(range.low) * 0.1);
  PlotRange result{std::isnan(axis.low) ? range.low - room : axis.low,
                   std::isnan(axis.high) ? range.high + room : axis.high};
  if (!(result.low < result.high)) { // all numbers beyond the end that is told
    (std::isnan(axis.low) ? result.low : result.high) =
        std::isnan(axis.low) ? result.high - 1.0 : result.low + 1.0;
  }
  return result;
}

/// The ticks of an axis.
/// @param pixelsATick of a number
/// @param labelPixels what the longest name takes
/// @param most        numbers, however long the axis
Ticks ticksFor(PlotAxis const& axis, PlotRange const& range, int length, int pixelsATick, int labelPixels,
               int most) {
  if (axis.labels.empty()) {
    return ticksOf(range.low, range.high, std::clamp(length / pixelsATick, 2, most));
  }
  return namedTicks(axis.labels, range.low, range.high, std::max(1, length / labelPixels));
}

int widestOf(std::vector<std::string> const& texts) {
  RasterFont const font;
  int widest = 0;
  for (std::string const& text : texts) {
    widest = std::max(widest, font.measure(text).width);
  }
  return widest;
}

} // namespace

void PlotRange::add(double value) {
  if (std::isfinite(value)) {
    low = std::min(low, value);
    high = std::max(high, value);
  }
}

PlotLayout::PlotLayout(Plot const& shown, cv::Point corner) : plot(shown), whole(corner, shown.size) {
  measure();
  layOut();
}

void PlotLayout::measure() {
  PlotRange numbersX, numbersY;
  bool hasBars = false;
  for (PlotSeries const& series : plot.series) {
    for (std::size_t i = 0; i < series.x.size(); ++i) {
      if (std::isfinite(series.x[i]) && std::isfinite(series.y[i])) {
        numbersX.add(series.x[i]);
        numbersY.add(series.y[i]);
      } else {
        ++notFinite;
      }
    }
    hasBars = hasBars || series.kind == SeriesKind::Bars;
  }
  if (hasBars) {
    numbersY.add(0.0);
  }
  constexpr double air = 0.04;
  if (!plot.heat.empty()) {
    numbersX = {-0.5, plot.heat.cols - 0.5};
    numbersY = {-0.5, plot.heat.rows - 0.5};
  }
  x = fitted(numbersX, plot.x, plot.heat.empty() ? air : 0.0);
  y = fitted(numbersY, plot.y, plot.heat.empty() ? air : 0.0);
  heat = {0.0, 1.0};
  if (!plot.heat.empty()) {
    PlotRange values;
    for (float const value : cv::Mat_<float>(plot.heat)) {
      values.add(static_cast<double>(value));
    }
    heat = fitted(values, plot.heatScale, 0.0);
  }
}

void PlotLayout::layOut() {
  RasterFont const font;
  int const line = font.lineHeight();
  int const top = plot.title.empty() ? gap + line / 2 : font.measure(plot.title).height + 2 * gap;
  int const bottom = tickLength + gap + 2 * line;
  int const height = std::max(20, plot.size.height - top - bottom);
  constexpr int mostUpright = 10;
  yTicks = ticksFor(plot.y, y, height, 3 * line, line, mostUpright);
  int const left = gap + line + widestOf(yTicks.labels) + gap + tickLength;
  int right = 2 * gap;
  for (PlotSeries const& series : plot.series) {
    if (!series.name.empty()) {
      right = std::max(right, 3 * gap + swatch + font.measure(series.name).width);
    }
  }
  if (!plot.heat.empty()) {
    right = std::max(right, 3 * gap + colorScaleWidth(heatScale(), height, 1));
  }
  if (plot.arrowSample > 0.0) {
    area.width = std::max(20, plot.size.width - left - right); // at most: what the arrow needs makes it less
    right = std::max({right, 3 * gap + font.measure(arrowText()).width,
                      3 * gap + static_cast<int>(std::min(arrowLength(), plot.size.width / 4.0))});
  }
  area = cv::Rect(whole.x + left, whole.y + top, std::max(20, plot.size.width - left - right), height);
  if (plot.isEqualScale) {
    makeEqual();
  }
  constexpr int pixelsATick = 90;
  constexpr int mostAcross = 12;
  xTicks = ticksFor(plot.x, x, area.width, pixelsATick, widestOf(plot.x.labels) + gap, mostAcross);
  yTicks = ticksFor(plot.y, y, area.height, 3 * line, line, mostUpright);
}

/// Shortens the area on the side that has too much of it.
void PlotLayout::makeEqual() {
  double const unit = std::min(area.width / x.span(), area.height / y.span());
  cv::Size const size(std::max(2, cvRound(unit * x.span())), std::max(2, cvRound(unit * y.span())));
  area = cv::Rect(area.x, area.y + (area.height - size.height) / 2, size.width, size.height);
}

cv::Point2d PlotLayout::place(double across, double up) const {
  double const shareX = (across - x.low) / x.span();
  double const shareY = (up - y.low) / y.span();
  return {area.x - 0.5 + shareX * area.width,
          area.y - 0.5 + (plot.isYDown ? shareY : 1.0 - shareY) * area.height};
}

ColorScale PlotLayout::heatScale() const {
  return {plot.heatMap, heat.low, heat.high, withUnit(plot.heatScale.title, plot.heatScale.unit)};
}

int PlotLayout::heatScaleHeight() const {
  constexpr int tallest = 420;
  return std::min(area.height, tallest) + RasterFont().lineHeight() / 2;
}

std::string PlotLayout::arrowText() const {
  return shortNumber(plot.arrowSample) + ' ' + plot.arrowUnit;
}

double PlotLayout::arrowLength() const {
  return std::abs(plot.arrowSample * plot.arrowScale) * area.width / x.span();
}

} // namespace vorn::mv
