// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/camera_model.hpp>

namespace vorn::mv {

/// A camera that was calibrated elsewhere, from a file of OpenCV's storage: YAML, XML or JSON, as
/// `cv::FileStorage` and OpenCV's own calibration program write them.
///
/// Taken are, by the first of these names that is there,
/// - the camera matrix, 3 x 3: camera_matrix, Camera_Matrix, cameraMatrix, CameraMatrix, intrinsic_matrix, K
/// - 4, 5, 8, 12 or 14 distortion coefficients, exactly: distortion_coefficients, Distortion_Coefficients,
///   distCoeffs, DistCoeffs, dist_coeffs, D
/// - where they are there the size of the images: image_width and image_height, image_Width and image_Height,
///   width and height, or a list of two numbers image_size, imageSize, Image_Size or resolution; without it
///   the model's resolution is 0 x 0
/// - where it is there the reprojection error, pixels: avg_reprojection_error, Avg_Reprojection_Error,
///   reprojection_error, rms; without it the model does not count as calibrated (`CameraModel::isCalibrated`)
///
/// Matrices may be of OpenCV's form, of rows, cols and data, or plain lists. The rest of the file is passed
/// over.
/// @param path of the file, at most 32 MB
/// @throws Exception that names the file and the member that cannot be used, also for cameras of another
///         model (fisheye) and for a camera matrix with skew; for what is no such file, that it is none
[[nodiscard]] VORN_API CameraModel readOpenCvCamera(std::string const& path);

} // namespace vorn::mv
