// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

class CameraCalibData;
class LineScannerCalibData;

/// Why views of a plane pattern cannot calibrate a camera, in words for the user; nothing when they can.
///
/// Names the view ("view 3", counted from 0) that has lists of different lengths, fewer than 6 points, points
/// that are not finite or lie outside the image, or points on one line. Says so when there are fewer than 3
/// views, and when all views show the pattern from the same direction, which does not determine the focal
/// length: the directions come from the images of the pattern's line at infinity, which are the same for
/// parallel planes whatever the focal length, distance and rotation in the plane (Zhang 2000, section 4, on
/// degenerate configurations).
/// @param resolution width and height of the images
VORN_API std::optional<std::string> findCalibrationProblem(CameraCalibData const& data,
                                                           cv::Size const& resolution);

/// The same for the calibration of a laser line scanner: names also the view that does not hold `planeCount`
/// laser lines, and a line that lies on the pattern in fewer than two views.
VORN_API std::optional<std::string> findCalibrationProblem(LineScannerCalibData const& data,
                                                           cv::Size const& resolution, int planeCount);

} // namespace vorn::mv
