// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/color_map.hpp>
#include <vorn/mv/measure/raster_font.hpp>

namespace vorn::mv {

/// What a mark shows; in brackets what it takes of `Mark`.
enum class MarkKind {
  Point,    ///< a filled dot [points: 1, style.size its radius]
  Cross,    ///< [points: 1, style.size half its width]
  Arrow,    ///< [points: 2, from and to, style.size half its head's length]
  Line,     ///< through points [points: 2 or more]
  Circle,   ///< [points: 1, length its radius]
  Ellipse,  ///< [points: 1, length and length2 its half axes, angle]
  Polygon,  ///< closed [points: 3 or more]
  Text,     ///< [points: 1, text]
  ScaleBar, ///< a known length [length in mm, mmPerPixel or a view; points: 1 or none: the lower left corner]
  Legend,   ///< the colours of values, beside the picture [map, low, high, unit, text its title]
  Axes      ///< of the world's frame, in red, green and blue [points: 1, length in mm, text its name]
};

/// What a mark's points and lengths are measured in.
enum class MarkSpace {
  Pixel, ///< of the image: x, y; pixel centres are integer
  World  ///< millimetres: x, y, z in the frame that the AMat's view gives
};

/// How a mark looks. Widths and sizes are those of the drawn picture, whatever its zoom.
struct MarkStyle {
  Meaning meaning = Meaning::Note; ///< gives the colour
  /// Blue, green, red, in place of the meaning's colour.
  std::optional<cv::Vec3b> color;
  double width = 1.5;               ///< of lines, in px: 0.1 to 1000
  double size = 4.0;                ///< of points, crosses and arrow heads, in px: 0.1 to 10000
  bool isFilled = false;            ///< circles, ellipses and polygons
  double opacity = 0.35;            ///< of what is filled: 0 to 1
  bool hasHalo = true;              ///< a dark rim, for contrast on any image
  FontSize font = FontSize::Medium; ///< of the text
  int fontScale = 1;                ///< picture pixels a pixel of the font: 1 to 64
};

/// A mark on an image, as data.
struct Mark {
  MarkKind kind = MarkKind::Point;    ///< what it shows
  MarkSpace space = MarkSpace::Pixel; ///< of `points` and the lengths; axes are World, ellipses Pixel
  std::vector<cv::Point3d> points;    ///< z is 0 in pixels
  /// Radius of a circle or first half axis of an ellipse, in px of the image or mm as `space` says, 0 to 1e9;
  /// of a scale bar or axes in mm, 1e-9 to 1e9.
  double length = 0.0;
  /// Second half axis of an ellipse, in px of the image: 0 to 1e9.
  double length2 = 0.0;
  double angle = 0.0;             ///< of an ellipse's first half axis, degrees from x towards y
  double mmPerPixel = 0.0;        ///< of a scale bar in `MarkSpace::Pixel`, mm an image pixel: 1e-9 to 1e9
  std::string text;               ///< UTF-8; drawn beside the point of other kinds too
  ColorMap map = ColorMap::Turbo; ///< of a legend
  double low = 0.0;               ///< the value of a legend's lower end, in `unit`; finite
  double high = 1.0;              ///< that of its upper end; above `low`, finite
  std::string unit;               ///< of a legend's values, behind its title; empty: none
  MarkStyle style;                ///< how it looks; legends have a look of their own
  std::string layer;              ///< what is shown and hidden together
};

} // namespace vorn::mv
