// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The wrapped phase of a phase-shift stack, radians in [0, 2π), and exactly -1 where the mask is 0.
///
/// Four images: the angle of (I1 - I3, I0 - I2). Three images: the angle of (√3 (I1 - I2), 2 I0 - I1 - I2).
/// Five or more: `phase` is allocated and its pixels are left as they are.
///
/// Working memory: none that grows with the image.
/// @param images 3 or 4 CV_8UC1 images of one size, in projection order
/// @param phase  H x W, written in place when it has that size already (also as a region of a larger map)
/// @param mask   H x W CV_8UC1, 0 marks what to leave out; empty takes every pixel
/// @throws std::invalid_argument for fewer than 3 images, an image or a mask of another type or size, or an
///         empty image; std::logic_error before `Library::init`. `phase` is unchanged then.
VORN_API void decode_phase_shift(std::vector<cv::Mat> const& images, cv::Mat_<float>& phase,
                                 cv::Mat const& mask = cv::Mat());
/// @overload
VORN_API void decode_phase_shift(std::initializer_list<cv::Mat> images, cv::Mat_<float>& phase,
                                 cv::Mat const& mask = cv::Mat());

/// The length of the vector whose angle `decode_phase_shift` returns, and exactly -1 where the mask is 0.
///
/// It is proportional to the fringe amplitude A in grey levels: 2 A for four images, 3 A for three. Otherwise
/// as `decode_phase_shift`, also in working memory.
VORN_API void calc_magnitude(std::vector<cv::Mat> const& images, cv::Mat_<float>& magnitude,
                             cv::Mat const& mask = cv::Mat());

} // namespace vorn::mv
