// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

/// Decoders of binary code images. A pixel's bit is set where it is brighter than the middle (lo + hi) / 2 of
/// its own range over the stack, so no all-white or all-black image is needed.
namespace vorn::mv {

/// The stripe index of each pixel from a reference and the bit planes stored XOR-ed with it, as
/// `generate_ps4_patterns` makes them; -1 where it cannot be decoded, 0 where the mask is 0.
///
/// Bit 0 of the code word is the reference itself, bit k says whether image k differs from it; the stripe
/// index is the word less 2, in 16 bits (images after the sixteenth count for the range only). The words 0
/// and 1 come out as -2 and -1. With an empty stack nothing happens.
///
/// Working memory: none that grows with the image.
/// @param images      the reference and its planes, CV_8UC1 of one size H x W
/// @param code        H x W CV_16SC1, written in place when it is that already
/// @param maxCode     larger stripe indices become -1
/// @param minContrast pixels whose range over the stack is smaller become -1, grey levels
/// @param ignored     not used
/// @param mask        H x W CV_8UC1, 0 marks what to leave out; empty takes every pixel
/// @throws std::invalid_argument for an image or a mask of another type or size, or an empty image; `code` is
///         unchanged then
VORN_API void decode_binary_xor0_pattern(std::vector<cv::Mat> const& images, cv::Mat& code, int maxCode,
                                         int minContrast, int ignored, cv::Mat const& mask = cv::Mat());

/// The number that each pixel's Gray code stands for; 0 where it exceeds `maxCode` or the mask is 0.
///
/// Image k gives bit k of the Gray code word. With an empty stack nothing happens.
///
/// Working memory: none that grows with the image.
/// @param images            up to 16 CV_8UC1 images of one size H x W, least significant bit first
/// @param code              H x W CV_16UC1, written in place when it is that already
/// @param maxCode           larger numbers become 0
/// @param minContrast       pixels whose range over the stack is smaller use `fallbackThreshold`, grey levels
/// @param fallbackThreshold the threshold in place of (lo + hi) / 2 for such pixels, grey levels
/// @param mask              H x W CV_8UC1, 0 marks what to leave out; empty takes every pixel
/// @throws std::invalid_argument for more than 16 images, an image or a mask of another type or size, or an
///         empty image; std::logic_error before `Library::init`. `code` is unchanged then.
VORN_API void decode_gray_patterns(std::vector<cv::Mat> const& images, cv::Mat& code, int maxCode,
                                   int minContrast, int fallbackThreshold, cv::Mat const& mask = cv::Mat());
/// @overload
VORN_API void decode_gray_patterns(std::initializer_list<cv::Mat> images, cv::Mat& code, int maxCode,
                                   int minContrast, int fallbackThreshold, cv::Mat const& mask = cv::Mat());

} // namespace vorn::mv
