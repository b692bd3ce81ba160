// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The level at which the pixels of a sensor are full, as some of its images show it.
///
/// It is 255 for 8 bits. Of 16 bits it is the greatest value of the least range of 8, 10, 12, 14 or 16 bits
/// that holds all values; where these are multiples of a power of two (as of 10 or 12 bits in the upper ones)
/// the greatest such multiple in it. Of real numbers it is 1, 255 or the end of such a range. Where many
/// pixels have exactly the greatest value, a little below that end, it is this value: some sensors are full
/// before. One pixel in 100 000, up to 20, may be above the range, as hot ones are, and
/// reals up to 1.1.
/// @param images CV_8U, CV_16U, CV_32F or CV_64F, all of one depth; NaN and infinite ones are left out
/// @return in the images' own grey values; 0 for none
/// @throws Exception for other or mixed depths
VORN_API double findWhiteLevel(std::vector<cv::Mat> const& images);

} // namespace vorn::mv
