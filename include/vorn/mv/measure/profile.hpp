// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// How grey values are read along a path, and what counts as an edge.
struct ProfileSettings {
  /// Mean over so many samples across the path, 1 px apart: 1 to 1000.
  int width = 1;
  /// Between samples along the path, in px: 0.05 to 100. Edges are found with at most 1.
  double step = 0.5;
  /// Smoothing along the path before edges are looked for, standard deviation in px: 0.5 to 50. Their
  /// position comes from the samples as they are.
  double smoothing = 1.0;
  /// The least difference of grey values across an edge; 0: six times the profile's noise.
  double leastContrast = 0.0;
};

/// A blurred step in a profile: low + contrast * Phi((s - position) / blur) (Phi: the normal distribution).
struct ProfileEdge {
  double position = 0.0; ///< along the path, in px
  cv::Point2d point;     ///< in the image
  cv::Point2d direction; ///< unit, along the path: the way in which `contrast` counts
  double contrast = 0.0; ///< grey values after the edge less those before: positive from dark to bright
  double blur = 0.0;     ///< standard deviation of the edge's width, in px
  double sigma = 0.0;    ///< standard deviation of `position` from the noise around, in px
};

/// Grey values along a path.
struct Profile {
  std::vector<double> positions;   ///< along the path, from 0, in px
  std::vector<cv::Point2d> points; ///< in the image
  std::vector<double> values;      ///< NaN where the samples lie outside the image or are not finite
  double noise = 0.0;              ///< standard deviation of a sample's noise, from differences of neighbours
  std::vector<ProfileEdge> edges;  ///< by position
};

/// The grey values along a line or polyline, and the edges in them.
///
/// Samples are interpolated by cubic convolution (Keys 1981), at sub-pixel places. An edge is a crest of the
/// smoothed slope; a blurred step is then fitted to the samples around it by least squares, which finds its
/// position as exactly as its noise lets anything find it. A polyline's corners are no place for edges.
/// @param image one channel, any depth but CV_16F
/// @param path at least two points, in pixels, finite, not all the same
/// @throws Exception for an empty image or one with several channels, a path that is none or lies outside the
///         image as a whole, a setting out of its range
VORN_API Profile calcProfile(cv::Mat const& image, std::vector<cv::Point2d> const& path,
                             ProfileSettings const& settings = {});

/// An arc as a path, whose chords stray from it by less than a hundredth of a pixel.
/// @param from, to degrees, from x towards y; `to` may be more than a turn away from `from`, or before it
/// @throws Exception when the radius is not positive or a number not finite
VORN_API std::vector<cv::Point2d> arcPath(cv::Point2d center, double radius, double from, double to);

} // namespace vorn::mv
