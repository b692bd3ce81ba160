// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>

#include <vorn/mv/calib/camera_calib_data.hpp>

namespace vorn::mv {

/// The mean, element by element, of the transforms from device b to device a that pairs of poses of one
/// pattern give. Its rotation is one only as far as the pairs agree.
cv::Matx44d meanTransform(std::vector<cv::Matx44d> const& a_from_pattern,
                          std::vector<cv::Matx44d> const& b_from_pattern);

/// The poses of the data's last calibration, one a view.
std::vector<cv::Matx44d> latestPoses(CameraCalibData const& data);

/// Appends the poses of the last calibration of a copy of `data`. The data's points stay in place, so that
/// references to them hold; the poses that one object collects as the data of two devices follow each other.
void addNewPoses(CameraCalibData& data, CameraCalibData const& calibrated);

} // namespace vorn::mv
