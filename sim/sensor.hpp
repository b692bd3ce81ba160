// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace vorn::sim {

/// How light becomes grey levels. A level g above the black level stands for g / 255 * fullWell electrons,
/// whose count scatters by its square root; reading adds its own noise, and the result is rounded to 8 bits.
struct Sensor {
  /// Grey levels, divided by 255, of a white surface that faces a fully lit projector at its reference
  /// distance.
  double exposure = 0.6;
  /// Grey level, divided by 255 and the exposure, that a white surface shows without the projector.
  double ambient = 0.02;
  /// Grey level of no light at all.
  double blackLevel = 3;
  double fullWell = 30000;
  /// Electrons, standard deviation.
  double readNoise = 15;
  /// Relative standard deviation of the light from one image to the next.
  double flicker = 0;
  /// Bands across the image, as lamps draw them through a rolling shutter: their relative depth and the rows
  /// from one to the next; they stand elsewhere in every image.
  double bandDepth = 0;
  double bandRows = 105;
  /// Rows that deliver the black level only.
  std::vector<int> deadRows;
  std::uint64_t seed = 1;
};

/// Grey levels as a sensor delivers them: noise, rounding, saturation; CV_32FC1 to CV_8UC1. The noise depends
/// on the sensor's seed, the image number and the pixel alone.
cv::Mat readOut(Sensor const& sensor, cv::Mat const& grey, int imageNumber);

/// Standard deviation of the noise at a grey level, before rounding.
double noiseSigma(Sensor const& sensor, double grey);

} // namespace vorn::sim
