// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/legend.hpp"

#include <algorithm>

#include <opencv2/core.hpp>

#include "measure/ticks.hpp"

namespace vorn::mv {

namespace {

constexpr int barWidth = 16;
constexpr int gap = 5;
constexpr int tickLength = 4;

RasterFont fontOf(int enlarge) {
  return RasterFont(FontSize::Medium, enlarge);
}

Ticks ticksOfScale(ColorScale const& scale, int barHeight, int enlarge) {
  constexpr int fewest = 2;
  int const most = std::clamp(barHeight / (fontOf(enlarge).lineHeight() * 2), fewest, 11);
  return ticksOf(scale.low, scale.high, most);
}

int headHeight(ColorScale const& scale, int enlarge) {
  int const half = fontOf(enlarge).capHeight() / 2 + 1; // of the topmost number
  return scale.title.empty() ? half : fontOf(enlarge).lineHeight() + half + gap * enlarge;
}

} // namespace

Inks Inks::on(Ground ground) {
  return ground == Ground::Dark ? Inks{{34, 32, 30}, {225, 225, 225}, {70, 68, 66}}
                                : Inks{{255, 255, 255}, {30, 30, 30}, {222, 222, 222}};
}

std::string withUnit(std::string const& title, std::string const& unit) {
  return title.empty() ? unit : unit.empty() ? title : title + " [" + unit + "]";
}

int colorScaleWidth(ColorScale const& scale, int height, int enlarge) {
  RasterFont const font = fontOf(enlarge);
  int widest = 0;
  for (std::string const& label : ticksOfScale(scale, height - headHeight(scale, enlarge), enlarge).labels) {
    widest = std::max(widest, font.measure(label).width);
  }
  return std::max((barWidth + tickLength + gap) * enlarge + widest, font.measure(scale.title).width);
}

void drawColorScale(Canvas& canvas, ColorScale const& scale, cv::Point corner, int height, int enlarge,
                    cv::Vec3b const& ink) {
  RasterFont const font = fontOf(enlarge);
  Label label;
  label.scale = enlarge;
  label.color = ink;
  canvas.text(scale.title, corner, label);
  int const head = headHeight(scale, enlarge);
  int const barHeight = std::max(1, height - head - font.capHeight() / 2 - 1);
  cv::Rect const bar(corner.x, corner.y + head, barWidth * enlarge, barHeight);
  cv::Mat_<cv::Vec3b> colors(bar.size());
  for (int y = 0; y < bar.height; ++y) {
    colors.row(y).setTo(colorOf(scale.map, 1.0 - (y + 0.5) / bar.height));
  }
  canvas.picture(colors, bar.tl());
  label.down = TextDown::Middle;
  Ticks const ticks = ticksOfScale(scale, barHeight, enlarge);
  for (std::size_t i = 0; i < ticks.values.size(); ++i) {
    double const share = (ticks.values[i] - scale.low) / (scale.high - scale.low);
    double const y = bar.y - 0.5 + (1.0 - share) * bar.height;
    double const right = bar.x + bar.width;
    canvas.stroke({{right, y}, {right + tickLength * enlarge - 1.0, y}}, {1.0 * enlarge, ink});
    canvas.text(ticks.labels[i], {right + (tickLength + gap) * enlarge, y}, label);
  }
}

} // namespace vorn::mv
