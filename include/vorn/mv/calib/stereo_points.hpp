// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// What `StereoCamera::triangulate` makes of pairs of pixels.
struct StereoPoints {
  /// In the frame of camera 0, one for each pair; NaN where there is none.
  std::vector<cv::Point3f> points;
  /// How far a point's images lie from the given pixels, root mean square over the two images, in pixels; NaN
  /// where there is no point. A wrong match shows here, unless it errs along the epipolar line.
  std::vector<float> residuals;
  /// Pairs whose rays meet behind a camera.
  int behindCount = 0;
  /// Pairs whose rays meet more than ten million bases away, or nowhere.
  int parallelCount = 0;
  /// Pairs with a pixel that has no ray: not finite, or beyond the radius where the lens model folds over.
  int raylessCount = 0;
};

} // namespace vorn::mv
