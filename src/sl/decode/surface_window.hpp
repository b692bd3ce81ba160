// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv::sl {

/// What a fit says of its middle pixel.
struct WindowFit {
  double value = 0.0;    ///< projector pixels
  double variance = 0.0; ///< of the value, for the sigmas as they are given
  double excess = 0.0;   ///< sum of the squared residuals over their sigmas
  int freedom = 0;       ///< samples less the six terms of the surface
};

/// Fits quadratic surfaces to the measured coordinates around pixels. One for each thread.
class SurfaceWindow {
public:
  SurfaceWindow(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int largestRadius);

  /// The fit to the pixels within `radius` that are joined with (x, y) through measured neighbours there;
  /// nothing where they do not determine a surface with three samples to spare.
  std::optional<WindowFit> fit(int x, int y, int radius);

private:
  void gather(int x, int y, int radius);

  cv::Mat_<float> map_;
  cv::Mat_<float> sigma_;
  std::vector<uchar> isReached_;
  std::vector<cv::Point> joined_; ///< offsets from the middle
};

} // namespace vorn::mv::sl
