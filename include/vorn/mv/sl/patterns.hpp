// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

/// Pattern images for a projector, each a fresh CV_8UC1 matrix of the given size.
///
/// "Horizontal" in a name: stripes along the rows, the value depends on the row index y alone. "Vertical":
/// along the columns, on the column index x alone. Where there is a flag `vertical`, false codes y and true
/// codes x. A size of 0 gives an empty image. Every function throws `Exception` for a negative size or a
/// period below 1, before anything is changed. Working memory: none that grows with the image.
namespace vorn::mv {

/// One bit plane of a Gray-coded coordinate: 255 where bit `bit` of the Gray code of c / period is set, else
/// 0.
/// @param period width of one Gray index in pixels
/// @param bit    number of the bit, taken modulo 32
VORN_API cv::Mat generate_gray_pattern(cv::Size_<int> const& size, int period, int bit, bool vertical);

/// One bit plane of the Gray-coded row index.
/// @param bit number of the bit, taken modulo 32
VORN_API cv::Mat generate_horizontal_graycode_image(int width, int height, int bit);

/// One bit plane of the Gray-coded column index.
/// @param bit number of the bit, taken modulo 32
VORN_API cv::Mat generate_vertical_graycode_image(int width, int height, int bit);

/// One bright row every `period` rows: those with y mod period == phase.
VORN_API cv::Mat generate_horizontal_line_image(int width, int height, int period, int phase);

/// One bright column every `period` columns: those with x mod period == phase.
VORN_API cv::Mat generate_vertical_line_image(int width, int height, int period, int phase);

/// Vertical stripes of `stripeWidth` bright columns every `period` columns, the first one starting at
/// `offset`.
///
/// A column is bright when (x + period - offset) mod period < stripeWidth with a signed remainder; with an
/// offset above period + x that remainder is negative or zero and the column is bright.
VORN_API cv::Mat generate_vertical_stripe_pattern(int width, int height, int period, int stripeWidth,
                                                  int offset);

/// Square waves in `count` phases, each followed by its inverse: the stack for
/// `estimate_global_direct_light`.
///
/// Image 2k is bright where (x + k·step) / period is odd, with step = period / count (integer divisions).
/// @param out    cleared, then filled with 2·count images; only cleared when `count` is below 1
/// @param period half the wave's length in pixels
VORN_API void generate_high_frequency_patterns(int width, int height, std::vector<cv::Mat>& out, int period,
                                               int count);

/// A sine fringe image: 256·((sin(2π ((c + shift) mod period) / period) + 1) / 2)^gamma, rounded, at most
/// 255.
/// @param shift shift of the fringe against the axis, pixels; the remainder keeps the sign of c + shift
/// @param gamma exponent on the relative brightness; not NaN
VORN_API cv::Mat generate_phase_pattern(cv::Size_<int> const& size, int period, int shift, float gamma,
                                        bool vertical);

/// A cosine fringe image along the rows: 255·(cos(2π (y - shift) / period) + 1) / 2, truncated.
/// @param gamma accepted so that both variants have one signature, without effect here
VORN_API cv::Mat generate_horizontal_phase_shift_pattern(int width, int height, int period, int shift,
                                                         float gamma);

/// A cosine fringe image along the columns: 255·((cos(2π (x - shift) / period) + 1) / 2)^gamma, truncated.
/// @param gamma exponent on the relative brightness; not NaN
VORN_API cv::Mat generate_vertical_phase_shift_pattern(int width, int height, int period, int shift,
                                                       float gamma);

/// The two pattern sequences of the combined binary and four-step phase code.
///
/// `first` codes the column in units of u = 4 pixels, `second` the row in units of u = 8 pixels. With c the
/// coded coordinate, q = c / u and the code word w = q + 2, each sequence holds
/// - four fringe images 128·(sin(2π c / u + k π/2) + 1), k = 0..3, one fringe a unit;
/// - the reference, bit 0 of w;
/// - the bit planes k = 1..8 of w that the largest word needs, each XOR-ed with the reference.
/// The fringes decode by `decode_phase_shift`, the rest by `decode_binary_xor0_pattern` (which returns q).
VORN_API void generate_ps4_patterns(std::vector<cv::Mat>& first, std::vector<cv::Mat>& second,
                                    cv::Size_<int> const& size);

} // namespace vorn::mv
