// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/calib/camera_calib_data.hpp>

namespace vorn::mv {

/// Shared with the classes that add lists of their own to the samples.
struct CameraCalibData::Private : Record<CameraCalibData::Private> {
  std::vector<std::vector<cv::Point2f>> objPntss;
  std::vector<std::vector<cv::Point2f>> imgPntss;
  std::vector<cv::Matx44d> poses;
};

} // namespace vorn::mv
