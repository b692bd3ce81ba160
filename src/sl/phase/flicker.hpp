// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv::sl {

/// Factors that make up for different brightness of the four phase images (an unsteady lamp, jitter of the
/// exposure), their mean being 1.
///
/// Steps of half a period add up to the same level everywhere, I0 + I2 = I1 + I3 for any phase. The factors
/// are those for which this holds best, in least squares over the well exposed pixels of every few rows; all
/// are 1 where the images say nothing. 1 % of flicker would shift the phase by up to 1/100 of mean over
/// amplitude.
/// @param mask 0: left out
std::array<float, 4> flickerCorrection(std::vector<cv::Mat> const& phaseImages, cv::Mat_<uchar> const& mask);

/// The phase, in [0, 2 pi), of a pixel's phase images after correction.
float correctedPhase(int i0, int i1, int i2, int i3, std::array<float, 4> const& factors);

/// Turns the phase of the uncorrected images into that of the corrected ones. Leaves negative phases.
/// @param phase [0, 2 pi), in place
void correctFlicker(std::vector<cv::Mat> const& phaseImages, std::array<float, 4> const& factors,
                    cv::Mat_<float>& phase);

} // namespace vorn::mv::sl
