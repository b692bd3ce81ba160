// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/camera_model.hpp>

namespace vorn::mv {

/// A camera model of given numbers.
/// @param D may be empty
CameraModel cameraModelOf(cv::Mat const& K, cv::Mat const& D, cv::Size const& resolution, double calibError);

} // namespace vorn::mv
