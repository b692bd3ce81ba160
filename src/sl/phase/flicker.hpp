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
/// @param phaseImages  all CV_8UC1 or all CV_16UC1
/// @param maxGrayLevel pixels of a larger mean, and clipped ones, are left out
/// @param white        a pixel is clipped from here on
std::array<float, 4> flickerCorrection(std::vector<cv::Mat> const& phaseImages, int maxGrayLevel,
                                       int white = 255);

/// The phase, in [0, 2 pi), of a pixel's phase images after correction.
float correctedPhase(int i0, int i1, int i2, int i3, std::array<float, 4> const& factors);

/// Whether the factors change the phase by more than the rounding of its table.
bool isCorrection(std::array<float, 4> const& factors);

/// Turns the phases of some pixels of the uncorrected images into those of the corrected ones.
/// T is the type of a pixel, `unsigned char` or `unsigned short`.
/// @param steps the four phase images at the first of the pixels
/// @param phase [0, 2 pi), in place
template <class T>
void correctFlicker(std::array<T const*, 4> const& steps, std::array<float, 4> const& factors, int n,
                    float* phase);

} // namespace vorn::mv::sl
