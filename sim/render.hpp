// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "sim/pixel_integral.hpp"
#include "sim/rig.hpp"
#include "sim/scene.hpp"

/// Renders what a camera sees of a scene under a projector's pattern images or under laser light.
///
///   sim::ProjectorView const view(rig.camera, rig.projector, scene);   // geometry: once
///   std::vector<cv::Mat> images = view.capture(patterns);              // any number of pattern images
///   sim::Truth const truth = sim::truth(rig.camera, rig.projector, scene);
///
/// Patterns are pixels: what they mean is not known here. Everything is deterministic: the same input gives
/// the same images for any number of threads.
namespace vorn::sim {

struct RenderOptions {
  /// A camera pixel is seen through supersample x supersample rays. They soften the outlines of objects and
  /// shadows; the dots of a target are exact with one.
  int supersample = 2;
};

/// A camera's view of a scene under a projector, prepared for any number of pattern images.
///
/// Holds 20 bytes for each ray (a 1024 x 768 camera with 2 x 2 rays a pixel: 63 MB).
class ProjectorView {
public:
  ProjectorView(Camera const& camera, Projector const& projector, Scene const& scene,
                RenderOptions const& options = {});

  /// The camera's images (CV_8UC1) under pattern images (CV_8UC1, of the projector's resolution) projected
  /// one after another; `firstImage` numbers the first of them and selects the noise, so that two captures
  /// with different numbers are noisy in different ways. Throws std::invalid_argument for other pattern
  /// images.
  std::vector<cv::Mat> capture(std::vector<cv::Mat> const& patterns, int firstImage = 0) const;

  /// The same as grey levels (CV_32FC1) before noise, rounding and saturation.
  std::vector<cv::Mat> expose(std::vector<cv::Mat> const& patterns) const;

private:
  /// What one ray meets: light = gain * pattern(u, v) + albedo * ambient.
  struct Sample {
    float u = 0;
    float v = 0;
    float sigma = 0;
    float gain = 0;
    float albedo = 0;
  };

  void traceRow(Scene const& scene, int subRow);
  void lightRow(std::vector<cv::Mat> const& padded, std::vector<double> const& means, int subRow,
                cv::Mat& light) const;

  Camera camera_;
  Projector projector_;
  int supersample_;
  PixelIntegral integral_;
  std::vector<Sample> samples_;
};

} // namespace vorn::sim
