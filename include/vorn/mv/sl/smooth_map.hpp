// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// A map of coordinates smoothed along the surfaces that it shows.
struct SmoothedMap {
  cv::Mat_<float> map;      ///< projector pixels; negative where there is no coordinate, as before
  cv::Mat_<float> sigma;    ///< standard deviations after smoothing, projector pixels; NaN where unknown
  std::size_t smoothed = 0; ///< pixels that got the value of a fit
  std::size_t kept = 0;     ///< pixels with a coordinate that stayed as they were
};

/// Lowers the noise of absolute projector coordinates without shrinking what is curved or rounding what is
/// sharp: every pixel gets the value at its place of a quadratic surface, fitted by least squares to the
/// coordinates around it, weighted by 1 / sigma^2 where these differ (Savitzky and Golay in two dimensions
/// where all of the window is measured).
///
/// Only pixels that are joined with the middle one through measured neighbours take part, and only a fit
/// that leaves no more than the noise is taken; else the window shrinks down to three pixels in square, and a
/// pixel that no window fits stays as it is. How far the residuals of the whole map exceed `sigma` is
/// measured (median over windows, taken for 1 to 3), so that coordinates with a small ripple of another cause
/// are smoothed too. Orders of fringes stay what they are: the fit is of coordinates, not of wrapped phases.
///
/// With radius 1, 2, 3, 4 the noise of a pixel within a surface falls to 0.75, 0.39, 0.27 and 0.21 of what it
/// was. Errors of neighbours become alike over the window: a fit over many points gains nothing from it.
/// @param map    projector pixels, negative where there is none
/// @param sigma  standard deviation of each coordinate, as large as the map; pixels where it is not above 0
///               and finite stay as they are and take no part
/// @param radius half the window, 1 to 5 camera pixels
/// @throws Exception for a radius out of its range, an empty map, a sigma of another size
/// @throws Cancelled when the observer stops it
VORN_API SmoothedMap smoothMap(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int radius,
                               Observer* observer = nullptr);

} // namespace vorn::mv
