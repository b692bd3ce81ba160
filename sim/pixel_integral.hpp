// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "sim/rig.hpp"

namespace vorn::sim {

/// Integrates light over camera pixels and lens blur along one axis: out[i] is the mean of `light`, which
/// holds `supersample` values a pixel, weighted by a pixel's box blurred with a Gaussian of `blur` pixels.
class PixelIntegral {
public:
  PixelIntegral(int supersample, double blur);

  /// One row of width * supersample values to a row of `width` values.
  void alongRow(float const* light, int width, float* out) const;

  /// The grey levels (CV_32FC1) a camera sees before noise: `light` is CV_32FC1 with the camera's columns and
  /// `supersample` rows for each of its rows, integrated along rows already.
  cv::Mat greyLevels(Camera const& camera, cv::Mat const& light) const;

private:
  void alongColumns(cv::Mat const& light, int row, float* out) const;

  int supersample_;
  int first_;
  std::vector<float> weights_;
};

} // namespace vorn::sim
