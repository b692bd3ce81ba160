// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/plot.hpp>

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "measure/legend.hpp"
#include "measure/ticks.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "drawPlot";
constexpr int gap = 8;
constexpr int tickLength = 5;
constexpr int legendSwatch = 22;

struct Range {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();
  void add(double value) {
    if (std::isfinite(value)) {
      low = std::min(low, value);
      high = std::max(high, value);
    }
  }
  double span() const { return high - low; }
};

void check(PlotAxis const& axis, char const* name) {
  if (std::isinf(axis.low) || std::isinf(axis.high) || axis.low >= axis.high) {
    throw error("The low end of " + std::string(name) + ", " + std::to_string(axis.low) +
                    ", must be below its high end, " + std::to_string(axis.high),
                function);
  }
}

void check(Plot const& plot) {
  constexpr int least = 100;
  constexpr int most = 20000;
  if (std::min(plot.size.width, plot.size.height) < least ||
      std::max(plot.size.width, plot.size.height) > most) {
    throw error("A plot's size must be 100 to 20000 px, not " + std::to_string(plot.size.width) + " x " +
                    std::to_string(plot.size.height),
                function);
  }
  for (PlotSeries const& series : plot.series) {
    bool const isArrows = series.kind == SeriesKind::Arrows;
    if (series.x.size() != series.y.size() ||
        (isArrows && (series.dx.size() != series.x.size() || series.dy.size() != series.x.size()))) {
      throw error("The series \"" + series.name + "\" has " + std::to_string(series.x.size()) + " x and " +
                      std::to_string(series.y.size()) + " y" +
                      (isArrows ? ", " + std::to_string(series.dx.size()) + " dx and " +
                                      std::to_string(series.dy.size()) + " dy"
                                : ""),
                  function);
    }
    if (!(series.size >= 0.1 && series.size <= 100.0)) {
      throw error("The size of the series \"" + series.name + "\" must be 0.1 to 100 px, not " +
                      std::to_string(series.size),
                  function);
    }
  }
  check(plot.x, "x");
  check(plot.y, "y");
  check(plot.heatScale, "the heat map's scale");
  if (!plot.heat.empty() && plot.heat.type() != CV_32FC1) {
    throw error("A heat map must be CV_32FC1", function);
  }
  if (!std::isfinite(plot.arrowScale) || !std::isfinite(plot.arrowSample)) {
    throw error("The scale of arrows must be finite", function);
  }
}

/// The ends of an axis: as told, or the numbers with some air around.
Range fitted(Range range, PlotAxis const& axis, double air) {
  if (range.low > range.high) {
    range = {0.0, 1.0};
  }
  double const room = range.span() > 0.0 ? air * range.span() : std::max(0.5, std::abs(range.low) * 0.1);
  Range result{std::isnan(axis.low) ? range.low - room : axis.low,
               std::isnan(axis.high) ? range.high + room : axis.high};
  if (!(result.low < result.high)) { // all numbers beyond the end that is told
    (std::isnan(axis.low) ? result.low : result.high) =
        std::isnan(axis.low) ? result.high - 1.0 : result.low + 1.0;
  }
  return result;
}

/// Draws one plot on one canvas.
class Plotter {
public:
  Plotter(Canvas& canvas, Plot const& plot) : canvas_(canvas), plot_(plot), inks_(Inks::on(plot.ground)) {}

  /// @return how many numbers were left out
  std::size_t draw() {
    measure();
    layOut();
    canvas_.fill(cv::Rect(cv::Point(), plot_.size), inks_.ground);
    drawHeat();
    drawGrid();
    canvas_.clip(area_);
    for (std::size_t i = 0; i < plot_.series.size(); ++i) {
      drawSeries(plot_.series[i], colorOfSeries(i));
    }
    canvas_.clip(cv::Rect(cv::Point(), plot_.size));
    drawFrame();
    drawLegend();
    return notFinite_;
  }

private:
  cv::Vec3b colorOfSeries(std::size_t i) const {
    return plot_.series[i].color.value_or(seriesColor(static_cast<int>(i), plot_.ground));
  }

  Label label(TextAcross across, TextDown down) const {
    Label result;
    result.color = inks_.text;
    result.across = across;
    result.down = down;
    return result;
  }

  void measure() {
    Range x, y;
    bool hasBars = false;
    for (PlotSeries const& series : plot_.series) {
      for (std::size_t i = 0; i < series.x.size(); ++i) {
        if (std::isfinite(series.x[i]) && std::isfinite(series.y[i])) {
          x.add(series.x[i]);
          y.add(series.y[i]);
        } else {
          ++notFinite_;
        }
      }
      hasBars = hasBars || series.kind == SeriesKind::Bars;
    }
    if (hasBars) {
      y.add(0.0);
    }
    constexpr double air = 0.04;
    if (!plot_.heat.empty()) {
      x = {-0.5, plot_.heat.cols - 0.5};
      y = {-0.5, plot_.heat.rows - 0.5};
    }
    x_ = fitted(x, plot_.x, plot_.heat.empty() ? air : 0.0);
    y_ = fitted(y, plot_.y, plot_.heat.empty() ? air : 0.0);
    heat_ = {0.0, 1.0};
    if (!plot_.heat.empty()) {
      Range values;
      for (float const value : cv::Mat_<float>(plot_.heat)) {
        values.add(static_cast<double>(value));
      }
      heat_ = fitted(values, plot_.heatScale, 0.0);
    }
  }

  void layOut() {
    RasterFont const font;
    int const line = font.lineHeight();
    int const top = plot_.title.empty() ? gap + line / 2 : line + 2 * gap;
    int const bottom = tickLength + gap + 2 * line;
    int const height = std::max(20, plot_.size.height - top - bottom);
    yTicks_ = ticksOf(y_.low, y_.high, std::clamp(height / (3 * line), 2, 10));
    int widest = 0;
    for (std::string const& text : yTicks_.labels) {
      widest = std::max(widest, font.measure(text).width);
    }
    int const left = gap + line + widest + gap + tickLength;
    int right = 2 * gap;
    for (PlotSeries const& series : plot_.series) {
      if (!series.name.empty()) {
        right = std::max(right, 3 * gap + legendSwatch + font.measure(series.name).width);
      }
    }
    if (plot_.arrowSample > 0.0) {
      right = std::max(right, 3 * gap + font.measure(arrowText()).width);
    }
    if (!plot_.heat.empty()) {
      right = std::max(right, 3 * gap + colorScaleWidth(heatScale(), height, 1));
    }
    area_ = cv::Rect(left, top, std::max(20, plot_.size.width - left - right), height);
    if (plot_.isEqualScale) {
      makeEqual();
    }
    constexpr int pixelsATick = 90;
    xTicks_ = ticksOf(x_.low, x_.high, std::clamp(area_.width / pixelsATick, 2, 12));
    yTicks_ = ticksOf(y_.low, y_.high, std::clamp(area_.height / (3 * line), 2, 10));
  }

  /// Shortens the area on the side that has too much of it.
  void makeEqual() {
    double const unit = std::min(area_.width / x_.span(), area_.height / y_.span());
    cv::Size const size(std::max(2, cvRound(unit * x_.span())), std::max(2, cvRound(unit * y_.span())));
    area_ = cv::Rect(area_.x, area_.y + (area_.height - size.height) / 2, size.width, size.height);
  }

  ColorScale heatScale() const {
    return {plot_.heatMap, heat_.low, heat_.high, withUnit(plot_.heatScale.title, plot_.heatScale.unit)};
  }

  std::string arrowText() const { return shortNumber(plot_.arrowSample) + ' ' + plot_.arrowUnit; }

  cv::Point2d place(double x, double y) const {
    double const across = (x - x_.low) / x_.span();
    double const up = (y - y_.low) / y_.span();
    return {area_.x - 0.5 + across * area_.width,
            area_.y - 0.5 + (plot_.isYDown ? up : 1.0 - up) * area_.height};
  }

  void drawHeat() {
    if (plot_.heat.empty()) {
      return;
    }
    // Each pixel of the area takes the value that it stands over.
    cv::Mat_<float> shown(area_.size());
    for (int y = 0; y < shown.rows; ++y) {
      double const up = (y + 0.5) / shown.rows;
      double const row = y_.low + (plot_.isYDown ? up : 1.0 - up) * y_.span();
      for (int x = 0; x < shown.cols; ++x) {
        double const column = x_.low + (x + 0.5) / shown.cols * x_.span();
        cv::Point const at(toPixel(column), toPixel(row));
        bool const isInside = cv::Rect(0, 0, plot_.heat.cols, plot_.heat.rows).contains(at);
        shown(y, x) = isInside ? plot_.heat.at<float>(at) : std::numeric_limits<float>::quiet_NaN();
      }
    }
    canvas_.picture(colored(shown, plot_.heatMap, heat_.low, heat_.high, inks_.faint), area_.tl());
    drawColorScale(canvas_, heatScale(), {area_.br().x + 2 * gap, area_.y - RasterFont().lineHeight() / 2},
                   std::min(area_.height, 420) + RasterFont().lineHeight() / 2, 1, inks_.text);
  }

  void drawGrid() {
    if (!plot_.heat.empty()) {
      return;
    }
    Pen const pen{1.0, inks_.faint, 0.0};
    for (double const x : xTicks_.values) {
      double const at = std::round(place(x, y_.low).x);
      canvas_.stroke({{at, 1.0 * area_.y}, {at, area_.br().y - 1.0}}, pen);
    }
    for (double const y : yTicks_.values) {
      double const at = std::round(place(x_.low, y).y);
      canvas_.stroke({{1.0 * area_.x, at}, {area_.br().x - 1.0, at}}, pen);
    }
  }

  void drawFrame() {
    Pen const pen{1.0, inks_.text, 0.0};
    double const left = area_.x;
    double const right = area_.br().x - 1.0;
    double const top = area_.y;
    double const bottom = area_.br().y - 1.0;
    canvas_.stroke({{left, top}, {left, bottom}, {right, bottom}, {right, top}, {left, top}}, pen);
    for (std::size_t i = 0; i < xTicks_.values.size(); ++i) {
      double const x = std::round(place(xTicks_.values[i], y_.low).x);
      canvas_.stroke({{x, bottom}, {x, bottom + tickLength}}, pen);
      canvas_.text(xTicks_.labels[i], {x, bottom + tickLength + 1}, label(TextAcross::Middle, TextDown::Top));
    }
    for (std::size_t i = 0; i < yTicks_.values.size(); ++i) {
      double const y = std::round(place(x_.low, yTicks_.values[i]).y);
      canvas_.stroke({{left - tickLength, y}, {left, y}}, pen);
      canvas_.text(yTicks_.labels[i], {left - tickLength - gap / 2, y},
                   label(TextAcross::Right, TextDown::Middle));
    }
    double const middle = 0.5 * (left + right);
    canvas_.text(withUnit(plot_.x.title, plot_.x.unit),
                 {middle, bottom + tickLength + RasterFont().lineHeight()},
                 label(TextAcross::Middle, TextDown::Top));
    Label upright = label(TextAcross::Middle, TextDown::Top);
    upright.isUpright = true;
    canvas_.text(withUnit(plot_.y.title, plot_.y.unit), {gap / 2.0, 0.5 * (top + bottom)}, upright);
    canvas_.text(plot_.title, {left, top - gap / 2.0}, label(TextAcross::Left, TextDown::Bottom));
  }

  void drawLegend() {
    RasterFont const font;
    double y = area_.y + (plot_.heat.empty() ? 0.0 : 440.0) + font.lineHeight() / 2.0;
    double const x = area_.br().x + gap;
    for (std::size_t i = 0; i < plot_.series.size(); ++i) {
      PlotSeries const& series = plot_.series[i];
      if (series.name.empty()) {
        continue;
      }
      if (series.kind == SeriesKind::Points) {
        canvas_.stroke({{x + legendSwatch / 2.0, y}},
                       {2.0 * std::clamp(series.size, 2.0, 4.0), colorOfSeries(i), 0.0});
      } else {
        canvas_.stroke({{x, y}, {x + legendSwatch - 4.0, y}},
                       {std::clamp(series.size, 1.5, 5.0), colorOfSeries(i), 0.0});
      }
      canvas_.text(series.name, {x + legendSwatch + gap / 2.0, y}, label(TextAcross::Left, TextDown::Middle));
      y += font.lineHeight();
    }
    if (plot_.arrowSample > 0.0) {
      double const length = plot_.arrowSample * plot_.arrowScale * area_.width / x_.span();
      y += font.lineHeight() / 2.0;
      arrow({x, y}, {x + length, y}, inks_.text, 1.5);
      canvas_.text(arrowText(), {x, y + gap}, label(TextAcross::Left, TextDown::Top));
    }
  }

  void arrow(cv::Point2d from, cv::Point2d to, cv::Vec3b const& color, double width) {
    cv::Point2d const along = to - from;
    double const length = std::hypot(along.x, along.y);
    canvas_.stroke({from, to}, {width, color, 0.0});
    if (length > 0.5) {
      double const head = std::min(6.0, 0.5 * length);
      cv::Point2d const forward = along * (1.0 / length);
      cv::Point2d const side = cv::Point2d(-forward.y, forward.x) * (0.4 * head);
      canvas_.fill(Outline{to + forward, to - forward * head + side, to - forward * head - side}, color, 1.0);
    }
  }

  void drawSeries(PlotSeries const& series, cv::Vec3b const& color) {
    if (series.kind == SeriesKind::Line) {
      drawLine(series, color);
      return;
    }
    double const barWidth = series.x.size() > 1 ? std::abs(series.x[1] - series.x[0]) : 1.0;
    for (std::size_t i = 0; i < series.x.size(); ++i) {
      if (!std::isfinite(series.x[i]) || !std::isfinite(series.y[i])) {
        continue;
      }
      cv::Point2d const at = place(series.x[i], series.y[i]);
      if (series.kind == SeriesKind::Points) {
        canvas_.stroke({at}, {2.0 * series.size, color, 0.0});
      } else if (series.kind == SeriesKind::Bars) {
        cv::Point2d const low = place(series.x[i] - 0.5 * barWidth, 0.0);
        cv::Point2d const high = place(series.x[i] + 0.5 * barWidth, series.y[i]);
        canvas_.fill(Outline{low, {high.x, low.y}, high, {low.x, high.y}}, color, 0.8);
      } else if (std::isfinite(series.dx[i]) && std::isfinite(series.dy[i])) {
        arrow(at,
              place(series.x[i] + series.dx[i] * plot_.arrowScale,
                    series.y[i] + series.dy[i] * plot_.arrowScale),
              color, std::min(series.size, 1.2));
      } else {
        ++notFinite_;
      }
    }
  }

  /// A line of many points keeps, of those that share a column of pixels, the first, lowest, highest and
  /// last.
  void drawLine(PlotSeries const& series, cv::Vec3b const& color) {
    Outline line;
    Outline column;
    auto const flushColumn = [&] {
      if (column.size() > 4) {
        auto const [low, high] =
            std::minmax_element(column.begin(), column.end(),
                                [](cv::Point2d const& a, cv::Point2d const& b) { return a.y < b.y; });
        column = {column.front(), *low, *high, column.back()};
      }
      line.insert(line.end(), column.begin(), column.end());
      column.clear();
    };
    auto const flush = [&] {
      flushColumn();
      canvas_.stroke(line, {series.size, color, 0.0});
      line.clear();
    };
    for (std::size_t i = 0; i < series.x.size(); ++i) {
      if (!std::isfinite(series.x[i]) || !std::isfinite(series.y[i])) {
        flush();
        continue;
      }
      cv::Point2d const at = place(series.x[i], series.y[i]);
      if (!column.empty() && std::floor(at.x) != std::floor(column.front().x)) {
        flushColumn();
      }
      column.push_back(at);
    }
    flush();
  }

  Canvas& canvas_;
  Plot const& plot_;
  Inks inks_;
  Range x_, y_, heat_;
  cv::Rect area_;
  Ticks xTicks_, yTicks_;
  std::size_t notFinite_ = 0;
};

} // namespace

PlotDrawing drawPlot(Plot const& plot) {
  check(plot);
  PlotDrawing drawing;
  drawing.picture.create(plot.size, CV_8UC3);
  RasterCanvas canvas(drawing.picture, 0.0, 255.0);
  drawing.notFinite = Plotter(canvas, plot).draw();
  return drawing;
}

PlotSvg drawPlotSvg(Plot const& plot) {
  check(plot);
  SvgCanvas canvas(plot.size);
  PlotSvg drawing;
  drawing.notFinite = Plotter(canvas, plot).draw();
  drawing.document = canvas.document();
  return drawing;
}

Plot plotOf(Histogram const& histogram, std::string const& title, std::string const& unit) {
  static char const* const names[] = {"blue", "green", "red", "alpha"};
  Plot plot;
  plot.title = title;
  plot.x.title = "value";
  plot.x.unit = unit;
  plot.y.title = "pixels";
  plot.y.low = 0.0;
  bool const isColor = histogram.channels.size() == 3 || histogram.channels.size() == 4;
  for (std::size_t c = 0; c < histogram.channels.size(); ++c) {
    PlotSeries series;
    series.kind = SeriesKind::Line;
    series.size = 1.5;
    series.name = isColor ? names[c] : histogram.channels.size() == 1 ? "" : "channel " + std::to_string(c);
    if (isColor) {
      static cv::Vec3b const colors[] = {{210, 90, 30}, {50, 150, 40}, {50, 40, 210}, {120, 120, 120}};
      series.color = colors[c];
    }
    for (std::size_t bin = 0; bin < histogram.channels[c].counts.size(); ++bin) {
      series.x.push_back(histogram.center(bin));
      series.y.push_back(static_cast<double>(histogram.channels[c].counts[bin]));
    }
    plot.series.push_back(std::move(series));
  }
  return plot;
}

} // namespace vorn::mv
