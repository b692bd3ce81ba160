// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `find_stripes` looks for edges and lines.
struct StripeSettings {
  DecodeSettings decode; ///< of the coordinates; its noise, where it is not 0, is that of the points
  /// An edge or line counts when lit and dark about it differ by this many standard deviations of what
  /// tells them apart, or more. At least 3.
  double leastDeviations = 8.0;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// Where a row or a column of the camera's image crosses the edge of a stripe, or a line.
struct StripePoint {
  cv::Point2f point; ///< camera pixels: whole along the one coordinate, below a pixel along the other
  /// Standard deviation of that other coordinate that the images' noise makes, camera pixels.
  float sigma = 0.0F;
  float projector = -1.0F; ///< projector column or row of the edge or line; -1 where it is not known
  std::size_t image = 0;   ///< of the set: a bit that is no inverse, or lines
  bool isAcross = false;   ///< found along a column of the camera's image, else along a row
};

/// What `find_stripes` returns.
struct FoundStripes {
  std::vector<StripePoint> columns; ///< on edges and lines of the images that code projector columns
  std::vector<StripePoint> rows;    ///< likewise
  double noise = 0.0;               ///< of an image, grey levels, as it was taken for the standard deviations
};

/// The edges of the stripes of all bit images, and the peaks of all lines, below a pixel.
///
/// An edge is where a bit image crosses its inverse, or the mean of white and black where there are none:
/// there the surface's albedo does not matter (S. Inokuchi, K. Sato, F. Matsuda, ICPR 1984; M. Trobina,
/// Error Model of a Coded-Light Range Sensor, ETH Zurich 1995). Between the two pixels on both sides it is
/// taken as the step of a Gaussian of any width, whose error function makes a straight line of it; a line is
/// the top of a Gaussian through three pixels, above black, or else above the darkest beside it. Edges and
/// lines that run down the image are looked for along its rows, others along its columns; those at some 45
/// degrees may be found both ways.
///
/// Sets may have bits, fringes and lines together. Which edge or line a point lies on is known from decoding
/// the set as by `decode_patterns`. Of several exposures the longest counts, and clipped pixels have no
/// points.
///
/// The noise comes from what bits and their inverses add up to, or else from decoding.
///
/// Working memory: that of `decode_patterns`, and 16 bytes a pixel.
/// @param set    with bits or lines
/// @param images as `decode_patterns` takes them
/// @throws Exception as `decode_patterns`, and for a set without edges and lines, or bits with neither
/// inverses
///         nor white and black; Cancelled when the observer stops it
VORN_API FoundStripes find_stripes(PatternSet const& set, std::vector<cv::Mat> const& images,
                                   StripeSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
