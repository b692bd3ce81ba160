// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/adjustment.hpp>

namespace vorn::test {

/// Adds errors to a camera's points that dots share with those around, as far as some pitches: noise on the
/// grid, smoothed.
inline void addShared(mv::AdjustmentView& view, double size, double pitches, double pitch, cv::RNG& random) {
  for (int axis = 0; axis < 2; ++axis) {
    cv::Mat_<double> field(41, 41);
    random.fill(field, cv::RNG::NORMAL, 0, size * std::sqrt(4 * CV_PI) * pitches);
    cv::GaussianBlur(field, field, {}, pitches);
    for (std::size_t i = 0; i < view.objPnts.size(); ++i) {
      cv::Point const place(cv::Point2d(view.objPnts[i]) / pitch + cv::Point2d(20, 20));
      (axis == 0 ? view.points0[i].x : view.points0[i].y) += static_cast<float>(field(place));
    }
  }
}

} // namespace vorn::test
