// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/canvas.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "measure/glyphs.hpp"

namespace vorn::mv {

int toPixel(double coordinate) {
  constexpr double far = 1 << 28;
  return static_cast<int>(std::lround(std::clamp(coordinate, -far, far)));
}

cv::Rect boxOf(Outline const& line, double room) {
  cv::Point2d low = line.front();
  cv::Point2d high = low;
  for (cv::Point2d const& p : line) {
    low = {std::min(low.x, p.x), std::min(low.y, p.y)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y)};
  }
  cv::Point const first(toPixel(std::floor(low.x - room)), toPixel(std::floor(low.y - room)));
  cv::Point const last(toPixel(std::ceil(high.x + room)), toPixel(std::ceil(high.y + room)));
  return {first, last + cv::Point(1, 1)};
}

Outline ellipseOutline(cv::Point2d centre, cv::Size2d halfAxes, double angle) {
  // The line strays from the curve by less than a thirtieth of a pixel.
  constexpr double stray = 0.03;
  double const radius = std::max({halfAxes.width, halfAxes.height, 1.0});
  int const corners =
      std::clamp(static_cast<int>(std::ceil(CV_PI / std::acos(1.0 - stray / radius))), 12, 2000);
  Outline outline;
  for (int i = 0; i <= corners; ++i) {
    double const turn = 2.0 * CV_PI * (i % corners) / corners;
    double const x = halfAxes.width * std::cos(turn);
    double const y = halfAxes.height * std::sin(turn);
    outline.push_back(centre + cv::Point2d(x * std::cos(angle) - y * std::sin(angle),
                                           x * std::sin(angle) + y * std::cos(angle)));
  }
  return outline;
}

void Canvas::fill(cv::Rect const& rectangle, cv::Vec3b const& color, double opacity) {
  cv::Point2d const a = cv::Point2d(rectangle.tl()) - cv::Point2d(0.5, 0.5);
  cv::Point2d const b = cv::Point2d(rectangle.br()) - cv::Point2d(0.5, 0.5);
  fill(Outline{a, {b.x, a.y}, b, {a.x, b.y}}, color, opacity);
}

TextExtent Canvas::text(std::string_view words, cv::Point2d position, Label const& label) {
  RasterFont const font(label.size, label.scale);
  TextBitmap const bitmap = bitmapOf(label.size, words);
  TextExtent const extent{bitmap.ink.cols * label.scale, bitmap.ink.rows * label.scale, bitmap.missing};
  if (bitmap.ink.empty()) {
    return extent;
  }
  int const across = label.across == TextAcross::Left    ? 0
                     : label.across == TextAcross::Right ? extent.width
                                                         : extent.width / 2;
  // The middle of a text is that of its capitals: labels stand level with what they name.
  int const down = label.down == TextDown::Top      ? 0
                   : label.down == TextDown::Bottom ? extent.height
                   : label.down == TextDown::Baseline
                       ? font.ascent()
                       : (extent.height - font.lineHeight()) / 2 + font.ascent() - (font.capHeight() + 1) / 2;
  cv::Point corner(toPixel(position.x), toPixel(position.y));
  corner -= label.isUpright ? cv::Point(down, extent.width - across) : cv::Point(across, down);
  auto const put = [&](cv::Mat_<uchar> ink, int ring, cv::Vec3b const& color) {
    cv::Mat_<uchar> large;
    cv::resize(ink, large, {}, label.scale, label.scale, cv::INTER_NEAREST);
    if (label.isUpright) {
      cv::rotate(large, large, cv::ROTATE_90_COUNTERCLOCKWISE);
    }
    stamp(large, corner - cv::Point(ring, ring) * label.scale, color, words);
  };
  if (label.hasHalo) {
    cv::Mat_<uchar> ring;
    cv::copyMakeBorder(bitmap.ink, ring, 1, 1, 1, 1, cv::BORDER_CONSTANT, 0);
    cv::dilate(ring, ring, cv::Mat::ones(3, 3, CV_8U));
    put(ring, 1, haloColor);
  }
  put(bitmap.ink, 0, label.color);
  return extent;
}

} // namespace vorn::mv
