// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/color_map.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

constexpr int shades = 256;
using Table = std::array<cv::Vec3b, shades>;

Table turbo() {
  cv::Mat_<uchar> ramp(1, shades);
  for (int i = 0; i < shades; ++i) {
    ramp(0, i) = static_cast<uchar>(i);
  }
  cv::Mat_<cv::Vec3b> colors;
  cv::applyColorMap(ramp, colors, cv::COLORMAP_TURBO);
  Table table;
  std::copy(colors.begin(), colors.end(), table.begin());
  return table;
}

/// From one colour over white to another, of even lightness on both sides.
Table diverging() {
  cv::Vec3d const low(180, 80, 30);
  cv::Vec3d const middle(245, 245, 245);
  cv::Vec3d const high(30, 30, 190);
  Table table;
  for (int i = 0; i < shades; ++i) {
    double const share = 2.0 * i / (shades - 1) - 1.0;
    table[static_cast<std::size_t>(i)] =
        middle + (share < 0.0 ? low - middle : high - middle) * std::abs(share);
  }
  return table;
}

Table gray() {
  Table table;
  for (int i = 0; i < shades; ++i) {
    table[static_cast<std::size_t>(i)] = cv::Vec3b::all(static_cast<uchar>(i));
  }
  return table;
}

Table const& tableOf(ColorMap map) {
  static Table const up = turbo();
  static Table const down = [] {
    Table table = turbo();
    std::reverse(table.begin(), table.end());
    return table;
  }();
  static Table const grays = gray();
  static Table const both = diverging();
  return map == ColorMap::Turbo       ? up
         : map == ColorMap::TurboDown ? down
         : map == ColorMap::Gray      ? grays
                                      : both;
}

std::size_t shadeOf(double share) {
  return static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * (shades - 1)));
}

} // namespace

cv::Vec3b colorOf(ColorMap map, double share) {
  constexpr uchar middleGrey = 128;
  return std::isnan(share) ? cv::Vec3b::all(middleGrey) : tableOf(map)[shadeOf(share)];
}

cv::Vec3b colorOf(Meaning meaning, Ground ground) {
  static std::array<cv::Vec3b, 5> const onDark{
      {{255, 200, 80}, {90, 220, 60}, {70, 70, 255}, {40, 170, 255}, {255, 120, 220}}};
  static std::array<cv::Vec3b, 5> const onLight{
      {{190, 100, 20}, {40, 130, 20}, {40, 30, 200}, {0, 110, 210}, {170, 40, 150}}};
  return (ground == Ground::Dark ? onDark : onLight)[static_cast<std::size_t>(meaning)];
}

cv::Vec3b seriesColor(int index, Ground ground) {
  constexpr int count = 12; // as many as a calibration has views, as a rule
  static std::array<cv::Vec3b, count> const onDark{{{255, 180, 90},
                                                    {80, 170, 255},
                                                    {110, 220, 110},
                                                    {110, 110, 255},
                                                    {240, 150, 220},
                                                    {130, 180, 210},
                                                    {210, 190, 255},
                                                    {190, 190, 190},
                                                    {70, 230, 230},
                                                    {230, 230, 110},
                                                    {255, 110, 150},
                                                    {140, 150, 30}}};
  static std::array<cv::Vec3b, count> const onLight{{{180, 100, 20},
                                                     {10, 110, 230},
                                                     {40, 140, 40},
                                                     {40, 40, 200},
                                                     {170, 60, 130},
                                                     {60, 80, 120},
                                                     {180, 90, 220},
                                                     {110, 110, 110},
                                                     {20, 150, 160},
                                                     {170, 160, 0},
                                                     {210, 50, 90},
                                                     {0, 90, 90}}};
  int const place = ((index % count) + count) % count;
  cv::Vec3b const color = (ground == Ground::Dark ? onDark : onLight)[static_cast<std::size_t>(place)];
  if (index / count % 2 == 0) {
    return color;
  }
  // The second dozen: halfway to the ground's opposite, so that they differ from the first.
  constexpr double half = 0.5;
  return cv::Vec3d(color) * half + cv::Vec3d::all(ground == Ground::Dark ? 127.0 : 0.0);
}

cv::Mat colored(cv::Mat const& values, ColorMap map, double low, double high, cv::Vec3b const& absent) {
  if (values.type() != CV_32FC1) {
    throw error("Values to colour must be CV_32FC1", "colored");
  }
  if (!(low < high)) {
    throw error("The low end of the colours, " + std::to_string(low) + ", must be below the high end, " +
                    std::to_string(high),
                "colored");
  }
  Table const& table = tableOf(map);
  cv::Mat_<cv::Vec3b> picture(values.size());
  parallelRows(values.rows, [&](int begin, int end) {
    for (int y = begin; y < end; ++y) {
      float const* row = values.ptr<float>(y);
      for (int x = 0; x < values.cols; ++x) {
        picture(y, x) = std::isfinite(row[x])
                            ? table[shadeOf((static_cast<double>(row[x]) - low) / (high - low))]
                            : absent;
      }
    }
  });
  return std::move(picture);
}

} // namespace vorn::mv
