// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// Separates the light that a scene point sends back directly from what reaches it by way of other points
/// (interreflection, scattering in the material).
///
/// Under a fine pattern with half of its pixels lit, a lit point shows direct + global / 2 and an unlit one
/// global / 2; over the shifted patterns each point is both. Hence direct = highest - lowest and
/// global = 2·lowest. With an empty stack nothing happens. Working memory: none that grows with the image.
/// Source: S. K. Nayar, G. Krishnan, M. D. Grossberg, R. Raskar, "Fast separation of direct and global
/// components of a scene using high frequency illumination", ACM Trans. Graph. 25(3), 2006, section 3.
/// @param direct  H x W CV_32FC1, grey levels
/// @param global  H x W CV_32FC1, grey levels
/// @param images  captured under `generate_high_frequency_patterns`, CV_8UC1 of one size H x W
/// @param highest H x W CV_32FC1, the largest value of each pixel over the stack
/// @param lowest  H x W CV_32FC1, the smallest value of each pixel over the stack
/// @throws std::invalid_argument for an image of another type or size, or an empty image; the outputs are
///         unchanged then
VORN_API void estimate_global_direct_light(cv::Mat& direct, cv::Mat& global,
                                           std::vector<cv::Mat> const& images, cv::Mat& highest,
                                           cv::Mat& lowest);

} // namespace vorn::mv
