// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "sim/render.hpp"
#include "sim/rig.hpp"
#include "sim/scene.hpp"

namespace vorn::sim {

/// What is exactly so at the centre of every camera pixel.
struct Truth {
  /// The point seen, camera frame, mm; NaN where nothing is hit or the projector's light does not arrive.
  cv::Mat_<cv::Vec3f> x_in_cam;
  /// Projector column and row of that point; NaN likewise.
  cv::Mat_<cv::Vec2f> projector;
  /// Label of the object seen, lit or not; 0 where there is none.
  cv::Mat_<std::uint8_t> label;
  /// 255 where the pixel lies within a few pixels of an edge of depth, shadow, light or albedo.
  cv::Mat_<std::uint8_t> edge;
};

struct TruthOptions {
  /// How near an edge counts, pixels.
  int edgeRadius = 3;
  /// Relative change of the albedo from pixel to pixel that is an edge.
  double albedoStep = 0.1;
};

Truth truth(Camera const& camera, Projector const& projector, Scene const& scene,
            TruthOptions const& options = {});

/// The signal of a pixel under four-step fringes, grey levels.
struct Signal {
  cv::Mat_<float> amplitude;
  /// Standard deviation of the noise at the mean level, rounding to whole grey levels included.
  cv::Mat_<float> noise;
  /// 255 where one of the images is brighter than the sensor shows.
  cv::Mat_<std::uint8_t> clipped;
};

/// Measures the signal of noise-free exposures of four fringe images in quarter-period steps.
Signal signal(Sensor const& sensor, std::vector<cv::Mat> const& fourSteps);

/// Codes of `truthMask`.
enum class TruthMask : std::uint8_t { None = 0, Unusable = 64, Edge = 128, Clean = 255 };

/// One picture that says where a scan is expected: None without truth, Unusable where the pixel is clipped or
/// its amplitude is below `minAmplitude` grey levels, Edge near an edge, Clean elsewhere.
cv::Mat_<std::uint8_t> truthMask(Truth const& truth, Signal const& signal, double minAmplitude = 8);

} // namespace vorn::sim
