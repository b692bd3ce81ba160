// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"

namespace vorn::mv::sl {

/// Takes off what the squares of a projector's pixels do to the coordinates that fringes give.
///
/// The light of a sharp projector is a staircase, and so are the coordinates: the error is the same in every
/// pixel and odd about its middle. It shows in how fractions f of the coordinates are spread, which without
/// it are equally frequent: with the cosine sums E_m = mean of cos(2 pi m f), their density is 1 + 2 sum of
/// E_m cos(2 pi m f), and its integral, f + sum of E_m sin(2 pi m f) / (pi m), is the place. The sums are
/// taken tile by tile, as sharpness changes with depth.
///
/// Maps without a staircase stay as they are, and so do those whose fractions are uneven for another reason:
/// about another place than the pixel's middle, or because the camera's pixels meet the projector's one by
/// one.
/// @param coordinates projector pixels; negative where unknown
/// @param sigma       their standard deviations, which change with the slope; may be null
/// @return largest error that was taken off, projector pixels, over the whole map; 0 for none
double removeStaircase(cv::Mat_<float>& coordinates, cv::Mat_<float>* sigma, Progress const& progress);

} // namespace vorn::mv::sl
