// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// Colours that stand for values.
enum class ColorMap {
  Turbo,     ///< blue, green, yellow, red: depths, heights, maps
  TurboDown, ///< the same the other way round
  Gray,      ///< black to white
  Diverging  ///< blue, white, red: deviations about nought
};

/// A colour by meaning, so that the same thing has the same colour in every picture.
enum class Meaning { Note, Found, Dropped, Warning, Reference };

/// The ground that a picture's margins, or a plot, stand on: light for print.
enum class Ground { Dark, Light };

/// The colour (blue, green, red) of a share from 0 to 1; beyond, that of the nearer end; NaN: grey.
VORN_API cv::Vec3b colorOf(ColorMap map, double share);
/// Note: blue; found: green; dropped: red; warning: orange; reference: violet. On a light ground they are
/// darker.
VORN_API cv::Vec3b colorOf(Meaning meaning, Ground ground = Ground::Dark);
/// One of 24 colours, in turn, of which the first twelve are easily told apart, for the series of a plot or
/// the views of a report.
VORN_API cv::Vec3b seriesColor(int index, Ground ground = Ground::Dark);

/// The values of a matrix as colours, from `low` to `high`.
/// @param values CV_32FC1; what is not finite becomes `absent`
/// @return CV_8UC3
/// @throws Exception when the values are not CV_32FC1, or `low` is not below `high`
VORN_API cv::Mat colored(cv::Mat const& values, ColorMap map, double low, double high,
                         cv::Vec3b const& absent = {40, 36, 34});

} // namespace vorn::mv
