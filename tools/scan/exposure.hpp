// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::tools {

/// A figure over the whole image and over its ninths, row by row from the upper left one.
struct Spread {
  double all = std::numeric_limits<double>::quiet_NaN();
  std::array<double, 9> ninths{};

  /// Where it is worst, such as ", most upper left (12.5)"; empty where it is much the same all over.
  /// @param factor on the figures that are told
  std::string where(double factor, char const* unit) const;
};

/// Something to change.
struct Advice {
  /// What is at fault: sequences with the same fault are told of together.
  enum class Kind { Uneven, Highlights, Clipped, Dim, Dark, Flat, Blurred };
  Kind kind;
  double strength; ///< how bad it is, to be compared within a kind
  std::string text;
};

/// How a stack of images is exposed. Grey values are of 255, whatever the camera's depth.
struct Exposure {
  Spread clipped; ///< share of pixels that are full in one of the images
  Spread dark;    ///< share of pixels whose signal does not stand out from the noise
  Spread blur;    ///< median blur of the edges of the mean image, px; NaN without edges
  /// Standard deviation of a grey value, of fringes where they have about the amplitude below; NaN where all
  /// images are black and white.
  double noise = 0.0;
  double amplitude =
      0.0;             ///< median amplitude of the signal of the other pixels, grey values; NaN for one image
  double bright = 0.0; ///< what 99 % of the brightest grey values do not exceed
  /// Median standard deviation of the coordinate of the other pixels, projector pixels; NaN where the images
  /// are no fringes.
  double sigma = std::numeric_limits<double>::quiet_NaN();
  double modulation =
      std::numeric_limits<double>::quiet_NaN(); ///< of fringes: amplitude over mean brightness
  cv::Mat_<uchar> mean;                         ///< of the images
  cv::Mat_<uchar> isClipped;
  cv::Mat_<uchar> isDark;
  std::vector<Advice> advice; ///< what to change; empty when nothing need be
};

/// What the ground around the surface is for an exposure.
enum class Ground {
  Counts,   ///< may be surface that lacks light
  IsNoFault ///< a target's dark ground and what lies around it
};

/// @param phases four images of one size, CV_8UC1 or CV_16UC1, fringes shifted by a quarter each
/// @param period of the fringes, projector pixels
/// @param white at which the camera's pixels are full, in the images' own grey values; those that are told
/// are
///        of 255 all the same
Exposure exposureOfFringes(std::vector<cv::Mat> const& phases, double period, Ground ground = Ground::Counts,
                           double white = 255.0);

/// Of images of one size that show the same scene in any light, CV_8UC1 or CV_16UC1, one or more. Their noise
/// is told from the finest detail, so texture adds to it.
/// @param white as of fringes
Exposure exposureOfImages(std::vector<cv::Mat> const& images, Ground ground = Ground::Counts,
                          double white = 255.0);

} // namespace vorn::tools
