// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/pixel_integral.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "core/parallel.hpp"

namespace vorn::sim {

PixelIntegral::PixelIntegral(int supersample, double blur) : supersample_(supersample) {
  if (supersample < 1 || !(blur >= 0.0)) {
    throw std::invalid_argument("sim: supersample must be at least 1 and the camera's blur at least 0");
  }
  // Four deviations beyond the pixel's edge nothing is left.
  int const beyond = static_cast<int>(std::ceil(4.0 * blur * supersample));
  first_ = -beyond;
  double const width = std::max(blur, 1e-6) * std::sqrt(2.0);
  std::vector<double> weights;
  double sum = 0;
  for (int k = -beyond; k < supersample + beyond; ++k) {
    double const x = (k + 0.5) / supersample - 0.5;
    weights.push_back(std::erf((x + 0.5) / width) - std::erf((x - 0.5) / width));
    sum += weights.back();
  }
  for (double const w : weights) {
    weights_.push_back(static_cast<float>(w / sum));
  }
}

void PixelIntegral::alongRow(float const* light, int width, float* out) const {
  int const last = width * supersample_ - 1;
  int const taps = static_cast<int>(weights_.size());
  float const* weights = weights_.data();
  for (int x = 0; x < width; ++x) {
    int const start = x * supersample_ + first_;
    float sum = 0;
    if (start >= 0 && start + taps - 1 <= last) {
      for (int k = 0; k < taps; ++k) {
        sum += weights[k] * light[start + k];
      }
    } else {
      for (int k = 0; k < taps; ++k) {
        sum += weights[k] * light[std::clamp(start + k, 0, last)];
      }
    }
    out[x] = sum;
  }
}

void PixelIntegral::alongColumns(cv::Mat const& light, int row, float* out) const {
  int const width = light.cols;
  std::fill(out, out + width, 0.0F);
  int const taps = static_cast<int>(weights_.size());
  for (int k = 0; k < taps; ++k) {
    float const* source = light.ptr<float>(std::clamp(row * supersample_ + first_ + k, 0, light.rows - 1));
    float const weight = weights_[static_cast<std::size_t>(k)];
    for (int x = 0; x < width; ++x) {
      out[x] += weight * source[x];
    }
  }
}

cv::Mat PixelIntegral::greyLevels(Camera const& camera, cv::Mat const& light) const {
  cv::Mat grey(camera.device.resolution(), CV_32FC1);
  auto const scale = static_cast<float>(255.0 * camera.sensor.exposure);
  auto const black = static_cast<float>(camera.sensor.blackLevel);
  parallelRows(grey.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      float* row = grey.ptr<float>(y);
      alongColumns(light, y, row);
      for (int x = 0; x < grey.cols; ++x) {
        row[x] = row[x] * scale + black;
      }
    }
  });
  return grey;
}

} // namespace vorn::sim
