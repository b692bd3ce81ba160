// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/plot.hpp>

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "measure/plot_layout.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "drawPlot";
constexpr int gap = PlotLayout::gap;
constexpr int tickLength = PlotLayout::tickLength;
constexpr int legendSwatch = PlotLayout::swatch;

/// The pixel at a place; one half way between two is taken up wherever the plot stands.
double onPixel(double place) {
  constexpr double slack = 1e-6;
  return std::floor(place + 0.5 + slack);
}

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

/// Draws one plot on one canvas.
class Plotter {
public:
  Plotter(Canvas& canvas, Plot const& plot, cv::Point corner)
      : canvas_(canvas), plot_(plot), inks_(Inks::on(plot.ground)), at_(plot, corner), area_(at_.area),
        notFinite_(at_.notFinite) {}

  /// @return how many numbers were left out
  std::size_t draw() {
    canvas_.clip(at_.whole); // as yet that of the plot before
    canvas_.fill(at_.whole, inks_.ground);
    drawHeat();
    drawGrid();
    canvas_.clip(area_);
    for (std::size_t i = 0; i < plot_.series.size(); ++i) {
      drawSeries(plot_.series[i], colorOfSeries(i));
    }
    canvas_.clip(at_.whole);
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

  void drawHeat() {
    if (plot_.heat.empty()) {
      return;
    }
    // Each pixel of the area takes the value that it stands over.
    cv::Mat_<float> shown(area_.size());
    for (int y = 0; y < shown.rows; ++y) {
      double const up = (y + 0.5) / shown.rows;
      double const row = at_.y.low + (plot_.isYDown ? up : 1.0 - up) * at_.y.span();
      for (int x = 0; x < shown.cols; ++x) {
        double const column = at_.x.low + (x + 0.5) / shown.cols * at_.x.span();
        cv::Point const at(toPixel(column), toPixel(row));
        bool const isInside = cv::Rect(0, 0, plot_.heat.cols, plot_.heat.rows).contains(at);
        shown(y, x) = isInside ? plot_.heat.at<float>(at) : std::numeric_limits<float>::quiet_NaN();
      }
    }
    canvas_.picture(colored(shown, plot_.heatMap, at_.heat.low, at_.heat.high, inks_.faint), area_.tl());
    drawColorScale(canvas_, at_.heatScale(),
                   {area_.br().x + 2 * gap, area_.y - RasterFont().lineHeight() / 2}, at_.heatScaleHeight(),
                   1, inks_.text);
  }

  void drawGrid() {
    if (!plot_.heat.empty()) {
      return;
    }
    Pen const pen{1.0, inks_.faint, 0.0};
    for (double const x : at_.xTicks.values) {
      double const at = onPixel(at_.place(x, at_.y.low).x);
      canvas_.stroke({{at, 1.0 * area_.y}, {at, area_.br().y - 1.0}}, pen);
    }
    for (double const y : at_.yTicks.values) {
      double const at = onPixel(at_.place(at_.x.low, y).y);
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
    for (std::size_t i = 0; i < at_.xTicks.values.size(); ++i) {
      double const x = onPixel(at_.place(at_.xTicks.values[i], at_.y.low).x);
      canvas_.stroke({{x, bottom}, {x, bottom + tickLength}}, pen);
      canvas_.text(at_.xTicks.labels[i], {x, bottom + tickLength + 1},
                   label(TextAcross::Middle, TextDown::Top));
    }
    for (std::size_t i = 0; i < at_.yTicks.values.size(); ++i) {
      double const y = onPixel(at_.place(at_.x.low, at_.yTicks.values[i]).y);
      canvas_.stroke({{left - tickLength, y}, {left, y}}, pen);
      canvas_.text(at_.yTicks.labels[i], {left - tickLength - gap / 2, y},
                   label(TextAcross::Right, TextDown::Middle));
    }
    double const middle = 0.5 * (left + right);
    canvas_.text(withUnit(plot_.x.title, plot_.x.unit),
                 {middle, bottom + tickLength + RasterFont().lineHeight()},
                 label(TextAcross::Middle, TextDown::Top));
    Label upright = label(TextAcross::Middle, TextDown::Top);
    upright.isUpright = true;
    canvas_.text(withUnit(plot_.y.title, plot_.y.unit), {at_.whole.x + gap / 2.0, 0.5 * (top + bottom)},
                 upright);
    canvas_.text(plot_.title, {left, top - gap / 2.0}, label(TextAcross::Left, TextDown::Bottom));
  }

  void drawLegend() {
    RasterFont const font;
    double y =
        area_.y + (plot_.heat.empty() ? 0.0 : at_.heatScaleHeight() + 1.0 * gap) + font.lineHeight() / 2.0;
    double const x = area_.br().x + gap;
    double const samples = plot_.arrowSample > 0.0 ? 3.0 * font.lineHeight() : 0.0;
    std::size_t left = 0; // names not yet written
    for (PlotSeries const& series : plot_.series) {
      left += series.name.empty() ? 0U : 1U;
    }
    for (std::size_t i = 0; i < plot_.series.size() && left > 0; ++i) {
      if (plot_.series[i].name.empty()) {
        continue;
      }
      if (left > 1 && y + 1.5 * font.lineHeight() + samples > at_.whole.br().y) {
        canvas_.text("and " + std::to_string(left) + " more", {x, y},
                     label(TextAcross::Left, TextDown::Middle));
        y += font.lineHeight();
        break;
      }
      drawName(plot_.series[i], colorOfSeries(i), {x, y});
      y += font.lineHeight();
      --left;
    }
    if (plot_.arrowSample > 0.0) {
      y += font.lineHeight() / 2.0;
      arrow({x, y}, {x + at_.arrowLength(), y}, inks_.text, 1.5);
      canvas_.text(at_.arrowText(), {x, y + gap}, label(TextAcross::Left, TextDown::Top));
    }
  }

  void drawName(PlotSeries const& series, cv::Vec3b const& color, cv::Point2d at) {
    if (series.kind == SeriesKind::Points) {
      canvas_.stroke({at + cv::Point2d(legendSwatch / 2.0, 0)},
                     {2.0 * std::clamp(series.size, 2.0, 4.0), color, 0.0});
    } else {
      canvas_.stroke({at, at + cv::Point2d(legendSwatch - 4.0, 0)},
                     {std::clamp(series.size, 1.5, 5.0), color, 0.0});
    }
    canvas_.text(series.name, at + cv::Point2d(legendSwatch + gap / 2.0, 0),
                 label(TextAcross::Left, TextDown::Middle));
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
      cv::Point2d const at = at_.place(series.x[i], series.y[i]);
      if (series.kind == SeriesKind::Points) {
        canvas_.stroke({at}, {2.0 * series.size, color, 0.0});
      } else if (series.kind == SeriesKind::Bars) {
        cv::Point2d const low = at_.place(series.x[i] - 0.5 * barWidth, 0.0);
        cv::Point2d const high = at_.place(series.x[i] + 0.5 * barWidth, series.y[i]);
        canvas_.fill(Outline{low, {high.x, low.y}, high, {low.x, high.y}}, color, 0.8);
      } else if (std::isfinite(series.dx[i]) && std::isfinite(series.dy[i])) {
        arrow(at,
              at_.place(series.x[i] + series.dx[i] * plot_.arrowScale,
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
      cv::Point2d const at = at_.place(series.x[i], series.y[i]);
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
  PlotLayout at_;
  cv::Rect area_;
  std::size_t notFinite_;
};

/// Where plots stand below each other or in rows, and the size of them all.
struct Sheet {
  std::vector<cv::Point> corners;
  cv::Size size;
};

Sheet sheetOf(std::vector<Plot> const& plots, int columns) {
  if (plots.empty() || columns < 1) {
    throw error("A sheet takes one plot or more and one column or more, not " + std::to_string(plots.size()) +
                    " plots in " + std::to_string(columns) + " columns",
                "drawPlots");
  }
  Sheet sheet;
  cv::Point corner;
  int rowHeight = 0;
  for (std::size_t i = 0; i < plots.size(); ++i) {
    check(plots[i]);
    if (i % static_cast<std::size_t>(columns) == 0) {
      corner = {0, corner.y + rowHeight};
      rowHeight = 0;
    }
    sheet.corners.push_back(corner);
    corner.x += plots[i].size.width;
    rowHeight = std::max(rowHeight, plots[i].size.height);
    sheet.size = {std::max(sheet.size.width, corner.x), corner.y + rowHeight};
  }
  constexpr int most = 32000;
  if (std::max(sheet.size.width, sheet.size.height) > most) {
    throw error("A sheet of plots must be at most " + std::to_string(most) + " px wide and high, not " +
                    std::to_string(sheet.size.width) + " x " + std::to_string(sheet.size.height),
                "drawPlots");
  }
  return sheet;
}

/// @return how many numbers were left out
std::size_t drawSheet(Canvas& canvas, std::vector<Plot> const& plots, Sheet const& sheet) {
  canvas.fill(cv::Rect(cv::Point(), sheet.size), Inks::on(plots.front().ground).ground);
  std::size_t notFinite = 0;
  for (std::size_t i = 0; i < plots.size(); ++i) {
    notFinite += Plotter(canvas, plots[i], sheet.corners[i]).draw();
  }
  return notFinite;
}

} // namespace

PlotDrawing drawPlots(std::vector<Plot> const& plots, int columns) {
  Sheet const sheet = sheetOf(plots, columns);
  PlotDrawing drawing;
  drawing.picture.create(sheet.size, CV_8UC3);
  RasterCanvas canvas(drawing.picture, 0.0, 255.0);
  drawing.notFinite = drawSheet(canvas, plots, sheet);
  return drawing;
}

PlotSvg drawPlotsSvg(std::vector<Plot> const& plots, int columns) {
  Sheet const sheet = sheetOf(plots, columns);
  SvgCanvas canvas(sheet.size);
  PlotSvg drawing;
  drawing.notFinite = drawSheet(canvas, plots, sheet);
  drawing.document = canvas.document();
  return drawing;
}

PlotDrawing drawPlot(Plot const& plot) {
  return drawPlots({plot}, 1);
}

PlotSvg drawPlotSvg(Plot const& plot) {
  return drawPlotsSvg({plot}, 1);
}

} // namespace vorn::mv
