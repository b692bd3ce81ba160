// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include <vorn/mv/measure/plot.hpp>

namespace vorn::mv {

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
