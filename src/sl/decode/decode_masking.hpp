// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv::sl {

/// Marks the pixels that are well exposed: no phase image clipped at 255, their mean at most `maxGrayLevel`.
/// @param mask takes 255 or 0
void maskExposure(std::vector<cv::Mat> const& phaseImages, int maxGrayLevel, cv::Mat_<uchar>& mask);

/// How well each pixel's code images tell bright from dark.
///
/// There are two middles between bright and dark: that of the range of the code images, which the code is
/// read by, and the mean of the phase images, which is right also at a stripe border where no code image is
/// dark.
/// @param lit    takes 255 where the code images range over at least `minContrast` grey levels, or where such
///               pixels lie on both sides within `bridged` pixels; 0 elsewhere
/// @param margin takes the least distance of any code image from the nearer middle, 0 for one between the two
void maskContrast(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages,
                  int minContrast, int bridged, cv::Mat_<uchar>& lit, cv::Mat_<uchar>& margin);

} // namespace vorn::mv::sl
