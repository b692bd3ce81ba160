// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How a laser line is looked for in an image.
struct LaserLineOptions {
  /// Which way the line runs.
  enum class Direction {
    PerColumn, ///< the line runs across the image: peaks along each column
    PerRow     ///< the line runs down the image: peaks along each row
  };
  /// What counts as the place of a stripe.
  enum class Method {
    DerivativeZero, ///< zero crossing of a matched derivative filter: reaches the noise bound
    CentreOfGravity ///< mean of the positions, weighted with the light above the background
  };

  /// Which way the line runs.
  Direction direction = Direction::PerColumn;
  /// What counts as the place of a stripe.
  Method method = Method::DerivativeZero;
  /// Standard deviation of the stripe's profile in pixels that the filter is matched to; 0 takes the width
  /// measured at each peak.
  double width = 0;
  /// Stripes of another measured width are dropped: standard deviations in pixels, at most 10.
  double minWidth = 0.8;
  /// See `minWidth`.
  double maxWidth = 5;
  /// Least height above the background in grey levels. The background is the higher one of the two sides, so
  /// a step of brightness is no peak.
  double minContrast = 20;
  /// The grey level from which on a pixel counts as saturated.
  int saturation = 255;
  /// Stripes with more saturated pixels in a row are dropped.
  int maxSaturated = 3;
  /// The highest peaks of a column or row are kept, up to this many.
  int maxPeaks = 1;
  /// Stripes are dropped where an edge of the surface's brightness has moved them: where the profile is less
  /// symmetric than noise explains, or the line's height changes by more than 5 % over the stripe's width. An
  /// edge that follows about half of the line or more, within two degrees of it, is not found out: it looks
  /// like a laser that is asymmetric itself.
  bool dropMoved = true;
  /// Stripes with more saturated pixels in a row than `maxSaturated`, up to this many (at most 100), are
  /// measured by their flanks, where the profile is not full; a column with one whose flanks do not tell has
  /// no stripe. 0 drops them like all others that are saturated.
  int maxOverexposed = 0;

  /// @throws Exception that names the option, its value and the bound
  VORN_API void check() const;
};

/// A laser stripe cut by one column or row.
struct LaserPeak {
  cv::Point2f point;  ///< pixels; sub-pixel across the line, whole along it
  float contrast = 0; ///< height above the background, in grey levels
  float width = 0;    ///< standard deviation of the profile, in pixels
  /// Standard deviation of the place, in pixels, that noise of one grey level gives; of an overexposed stripe
  /// with what its flanks disagree by.
  float sigma = 0;
  bool isOverexposed = false; ///< measured by its flanks
};

/// The peaks of a laser line, column by column (or row by row), each column's in the order of their places.
///
/// The place of a stripe is the zero crossing of its correlation with the derivative of a Gaussian of its
/// width, which is the maximum likelihood estimate for a Gaussian stripe in white noise: its standard
/// deviation is (sigma_I / P) * sqrt(2 w / sqrt(pi)) for noise sigma_I, height P and width w. Stripes cut by
/// the image's border are left out.
///
/// Working memory: none that grows with the image when it is grey, 1 byte a pixel in colour.
/// @param image 8-bit grey or colour (each pixel then counts with its brightest channel)
/// @throws Exception for other images, and for options outside of their range; none for an empty image
VORN_API std::vector<LaserPeak> extract_laser_peaks(cv::Mat const& image,
                                                    LaserLineOptions const& options = {});

/// The same, watched.
/// @param observer may be null
/// @throws Cancelled when the observer stops it
VORN_API std::vector<LaserPeak> extract_laser_peaks(cv::Mat const& image, LaserLineOptions const& options,
                                                    Observer* observer);

/// The places of those peaks, as LineScannerCalibData and LineScanner take them.
VORN_API std::vector<cv::Point2f> extract_laser_line(cv::Mat const& image,
                                                     LaserLineOptions const& options = {});

/// The same, watched.
/// @param observer may be null
/// @throws Cancelled when the observer stops it
VORN_API std::vector<cv::Point2f> extract_laser_line(cv::Mat const& image, LaserLineOptions const& options,
                                                     Observer* observer);

} // namespace vorn::mv
