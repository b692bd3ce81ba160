// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <opencv2/core/hal/interface.h>

namespace vorn::mv::sl {

/// How many grey levels of pixels are told apart: noise depends on the light.
constexpr int levelBins = 16;

/// Estimates of the variance of images by the pixels' levels, each by itself hardly worth anything. They are
/// counted, so that the order in which they come does not matter.
class NoiseTally {
public:
  NoiseTally() : counts_(static_cast<std::size_t>(levelBins) * valueBins) {}

  /// @param variance of which half of all should be below that of the images
  void add(int level, float variance);
  void add(NoiseTally const& other);

private:
  friend class LevelNoise;
  /// Sixteen to a factor of 2, from 2^-32 to 2^32: images may be whole numbers to 65535, or real ones to 1.
  static constexpr int valueBins = 1024;

  std::vector<std::uint32_t> counts_;
};

/// The standard deviation of images by the level of their pixels.
class LevelNoise {
public:
  /// The same everywhere.
  explicit LevelNoise(float noise) : all_(noise) { byLevel_.fill(noise); }
  /// @param least what rounding alone makes
  LevelNoise(NoiseTally const& tally, float least);

  float at(uchar level) const { return byLevel_[level]; }
  float overall() const { return all_; }

private:
  float all_;
  std::array<float, levelBins> byLevel_{};
};

/// Half of all sums of so many squared normal deviates are below that.
float medianOfSquares(int degrees);

} // namespace vorn::mv::sl
