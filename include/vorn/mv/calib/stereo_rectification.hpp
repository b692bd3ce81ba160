// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/camera_model.hpp>

namespace vorn::mv {

/// How `StereoCamera::rectify` cuts its images.
struct StereoRectificationSettings {
  /// How much of the cameras' images the rectified ones show.
  enum class Coverage {
    Valid, ///< as much as leaves no pixel without an image
    All    ///< every pixel of the cameras; rectified pixels that they do not see stay black
  };

  /// Width and height of both rectified images; 0 x 0 takes those of camera 0.
  cv::Size size;
  /// How much of the cameras' images the rectified ones show.
  Coverage coverage = Coverage::Valid;
};

/// Two rectified cameras and the way to them.
struct StereoRectification {
  /// The rectified cameras, without distortion; "Error" as that of the cameras that they come from.
  CameraModel camera0;
  /// The same focal length and, across the base, the same principal point as camera 0.
  CameraModel camera1;
  /// The turn from the frame of camera 0 to that of rectified camera 0.
  cv::Matx33d rect0_from_cam0 = cv::Matx33d::eye();
  /// The turn from the frame of camera 1 to that of rectified camera 1.
  cv::Matx33d rect1_from_cam1 = cv::Matx33d::eye();
  /// Whether the base lies along the images' columns: points then share their column, not their row.
  bool isVertical = false;
  /// The distance between the cameras, in their unit.
  double baseline = 0;
  /// Carries (x, y, d, 1), a pixel of rectified image 0 and how much greater its x (y when `isVertical`) is
  /// than that in image 1, to the point in the frame of rectified camera 0, homogeneous: for
  /// cv::reprojectImageTo3D.
  cv::Matx44d Q = cv::Matx44d::eye();
  /// Where each rectified pixel lies in the images of camera 0, H x W CV_32FC2, for cv::remap with an empty
  /// second map.
  cv::Mat map0;
  /// The same for camera 1.
  cv::Mat map1;
};

} // namespace vorn::mv
