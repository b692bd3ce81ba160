// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/sensor.hpp"

#include <algorithm>
#include <cmath>

#include "core/parallel.hpp"
#include "sim/noise.hpp"

namespace vorn::sim {

double noiseSigma(Sensor const& sensor, double grey) {
  double const electronsPerLevel = sensor.fullWell / 255.0;
  double const electrons = std::max(grey - sensor.blackLevel, 0.0) * electronsPerLevel;
  return std::sqrt(electrons + sensor.readNoise * sensor.readNoise) / electronsPerLevel;
}

cv::Mat readOut(Sensor const& sensor, cv::Mat const& grey, int imageNumber) {
  cv::Mat image(grey.size(), CV_8UC1);
  std::uint64_t const stream = scramble(sensor.seed * 0x10000U + static_cast<std::uint64_t>(imageNumber));
  double const flicker = 1.0 + sensor.flicker * gaussian(stream);
  constexpr std::uint64_t bandKey = 0x62616e64;
  auto const bandPhase = static_cast<double>(scramble(stream ^ bandKey) % 1024U) * (2.0 * CV_PI / 1024.0);
  parallelRows(grey.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      float const* source = grey.ptr<float>(y);
      auto* target = image.ptr<std::uint8_t>(y);
      std::uint64_t const rowKey =
          stream + static_cast<std::uint64_t>(y) * static_cast<std::uint64_t>(grey.cols);
      double const brightness =
          flicker * (1.0 + sensor.bandDepth * std::sin(2.0 * CV_PI * y / sensor.bandRows + bandPhase));
      for (int x = 0; x < grey.cols; ++x) {
        double const level =
            (static_cast<double>(source[x]) - sensor.blackLevel) * brightness + sensor.blackLevel;
        double const noise =
            noiseSigma(sensor, level) * gaussian(rowKey + 1U + static_cast<std::uint64_t>(x));
        target[x] = cv::saturate_cast<std::uint8_t>(level + noise);
      }
    }
  });
  for (int const row : sensor.deadRows) {
    image.row(row) = cv::saturate_cast<std::uint8_t>(sensor.blackLevel);
  }
  return image;
}

} // namespace vorn::sim
