// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

/// How a scan codes one axis of the projector.
struct CodedAxis {
  int resolution; ///< projector pixels along it
  StripeCode code;
};

/// The axis along the projector's width, or the one along its height.
CodedAxis codedAxis(cv::Size const& projectorResolution, bool alongWidth);

/// Whether the images of a scan may have more than 8 bits.
enum class StackDepth { Bytes, Any };

/// Checks that a stack of images can be decoded.
/// @param cameraResolution 0 x 0 when it is not known
/// @throws Exception that says what is wrong, and with which image
void checkStack(std::vector<cv::Mat> const& images, CodedAxis const& axis, cv::Size const& cameraResolution,
                StackDepth depth);

/// The part of a map of projector coordinates that belongs to `roi`.
/// @param phase of the whole camera image, or of `roi` already
/// @throws Exception when it is neither, or when `roi` is not within the camera's image
cv::Mat_<float> cropTo(cv::Mat_<float> const& phase, cv::Rect const& roi, cv::Size const& cameraResolution);

/// @throws Exception for a projector with too few pixels to lay planes of light through
void checkProjector(cv::Size const& resolution);

} // namespace vorn::mv::sl
