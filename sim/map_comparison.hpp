// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "sim/truth.hpp"

namespace vorn::sim {

/// The projector coordinate that a map holds.
enum class MapAxis { Column = 0, Row = 1 };

/// How far a decoded map lies from the truth.
struct MapComparison {
  int returned = 0;      ///< pixels with a coordinate
  int orderErrors = 0;   ///< of those, more than half a period off
  int clean = 0;         ///< pixels that should have one: lit well and away from edges
  int cleanReturned = 0; ///< of those
  double rms = 0;        ///< error over these, projector pixels
  double bound = 0;      ///< rms of what the noise alone would leave to four-step phase shifting

  double overBound() const { return rms / bound; }
};

/// The noise bound of a pixel is sigma = (u / 2 pi) sigma_I / (A sqrt 2) for a period of u projector pixels,
/// an amplitude A and image noise sigma_I.
/// @param map  H x W projector pixels, negative where there is none
/// @param mask as `truthMask` returns it
MapComparison compareMap(cv::Mat_<float> const& map, Truth const& truth, Signal const& signal,
                         cv::Mat_<std::uint8_t> const& mask, MapAxis axis = MapAxis::Column);

/// Root mean square over all parts of a projector pixel of the map's mean error there, away from edges: what
/// averaging over a surface does not take off.
double systematicError(cv::Mat_<float> const& map, Truth const& truth, MapAxis axis);

} // namespace vorn::sim
