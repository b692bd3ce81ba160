// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// A decoded pixel near a point.
struct CoordinateSample {
  double x; ///< offset from the point, in radii of the neighbourhood
  double y;
  double value; ///< projector coordinate
  int sector;
  bool isInner; ///< in the dot, or as near to the corner; noise may differ from that of the others
};

/// Standard deviations of samples about a fit, robustly, of the inner ones and of the others.
struct MapScales {
  double inner = 0;
  double outer = 0;

  double of(CoordinateSample const& s) const { return s.isInner ? inner : outer; }
};

/// A polynomial of second degree through a map around a point.
struct MapFit {
  cv::Vec6d coefficients; ///< of the quadratic terms
  MapScales scales;
  double sigma = 0; ///< standard deviation of the value at the point

  double value() const { return coefficients[0]; }
  /// Whether a sample lies on the polynomial but for its noise.
  bool agreesWith(CoordinateSample const& s) const;
};

/// Fits samples with Tukey's biweight from a median start. Nothing where they do not determine the
/// polynomial.
std::optional<MapFit> fitMap(std::vector<CoordinateSample> const& samples);

} // namespace vorn::mv
