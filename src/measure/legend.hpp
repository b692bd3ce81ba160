// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/color_map.hpp>

#include "measure/canvas.hpp"

namespace vorn::mv {

/// The colours of words and lines on a ground.
struct Inks {
  cv::Vec3b ground;
  cv::Vec3b text;
  cv::Vec3b faint; ///< of grids
  static Inks on(Ground ground);
};

/// A bar of colours with its numbers.
struct ColorScale {
  ColorMap map = ColorMap::Turbo;
  double low = 0.0;
  double high = 1.0;
  std::string title; ///< with the unit
};

std::string withUnit(std::string const& title, std::string const& unit);

/// How wide `drawColorScale` draws for a height.
int colorScaleWidth(ColorScale const& scale, int height, int enlarge);
/// Draws the bar, low below, at a corner, with its title above, in this height.
void drawColorScale(Canvas& canvas, ColorScale const& scale, cv::Point corner, int height, int enlarge,
                    cv::Vec3b const& ink);

} // namespace vorn::mv
