// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// A dot of a calibration target: where its centre appears in the image, and where it stands on the target.
struct CalibKeyPoint {
  CalibKeyPoint() = default;
  /// The dot seen at `image` that stands at `object` on the target.
  CalibKeyPoint(cv::Point2f const& image, cv::Point2f const& object) : imgPnt(image), objPnt(object) {}

  /// Pixels; pixel centres lie at integer coordinates.
  cv::Point2f imgPnt;
  /// In the plane of the target, from its origin: x to the right, y down, in the unit of the pitch.
  cv::Point2f objPnt;
};

/// The image positions, in the order of the key points.
VORN_API std::vector<cv::Point2f> getImgPoints(std::vector<CalibKeyPoint> const& keyPoints);
/// The positions on the target, in the order of the key points.
VORN_API std::vector<cv::Point2f> getObjPoints(std::vector<CalibKeyPoint> const& keyPoints);

} // namespace vorn::mv
