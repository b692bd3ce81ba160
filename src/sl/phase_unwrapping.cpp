// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase_unwrapping.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "sl/growth_queue.hpp"
#include "sl/stack_checks.hpp"
#include "sl/unwrap_seeding.hpp"

namespace vorn::mv {

namespace {

constexpr double twoPi = 6.283185307179586;
constexpr float twoPiFloat = 6.2831855F;
constexpr float piFloat = 3.1415927F;
constexpr float rejected = -1.0F;

/// std::floor, inline: growth asks for it four times a pixel.
float floorOf(float value) {
  constexpr float allAreIntegersFrom = 8388608.0F; // 2^23
  bool const hasFraction = std::abs(value) < allAreIntegersFrom;
  auto const truncated = static_cast<float>(static_cast<int>(hasFraction ? value : 0.0F));
  float const floored = truncated - (truncated > value ? 1.0F : 0.0F);
  return hasFraction ? floored : value;
}

/// The growth in one region after another.
class Growth {
public:
  explicit Growth(GrowthPixel* pixels) : pixels_(pixels) {}

  void run(std::uint32_t begin, std::uint32_t end) {
    queue_.clear();
    for (std::uint32_t k = begin; k < end; ++k) {
      if (pixels_[k].state == unwrap_state::waiting) {
        queue_.addSeed(pixels_[k].quality, k);
      }
    }
    queue_.sortSeeds();
    while (!queue_.empty()) {
      grow(queue_.pop());
    }
  }

private:
  /// Gives a waiting pixel the fringe order that fits one of its unwrapped neighbours best.
  void grow(std::uint32_t index) {
    GrowthPixel& pixel = pixels_[index];
    float const wrapped = pixel.phase;
    float best = rejected;
    float bestDistance = 9999.0F;
    for (float const absolute : pixel.known) {
      float const order = floorOf(static_cast<float>((absolute - wrapped) / twoPi + 0.5));
      float const candidate = order * twoPiFloat + wrapped;
      float const distance = std::abs(candidate - absolute);
      // Which neighbours are unwrapped is as good as random: selecting is cheaper than branching.
      bool const isBetter = distance < bestDistance;
      bestDistance = isBetter ? distance : bestDistance;
      best = isBetter ? candidate : best;
    }
    if (bestDistance >= piFloat) {
      pixel.phase = rejected;
      return;
    }
    pixel.phase = best;
    pixel.state = unwrap_state::unwrapped;
    if (pixel.hasLeft) {
      tell(index - 1, 1, best);
    }
    if (pixel.hasRight) {
      tell(index + 1, 0, best);
    }
    if (pixel.upper != noGrowthPixel) {
      tell(pixel.upper, 3, best);
    }
    if (pixel.lower != noGrowthPixel) {
      tell(pixel.lower, 2, best);
    }
  }

  /// Tells a pixel the absolute phase of its neighbour on the given side.
  void tell(std::uint32_t index, int side, float absolute) {
    GrowthPixel& pixel = pixels_[index];
    pixel.known[side] = absolute;
    if (pixel.state == unwrap_state::unreached) {
      pixel.state = unwrap_state::waiting;
      queue_.push(pixel.quality, index);
    }
  }

  GrowthPixel* pixels_;
  GrowthQueue queue_;
};

void unwrap(UnwrapMaps const& maps, GrowthRegions& regions) {
  regions.clear();
  if (maps.phase.rows < 3 || maps.phase.cols < 3) {
    return;
  }
  UnwrapSeeding seeding(maps);
  for (int row = 1; row + 1 < maps.phase.rows; ++row) {
    regions.addRow(seeding.nextRow(), maps.state.ptr<uchar>(row));
  }
  regions.gather(maps);
  parallelRows(regions.count(), [&](int first, int end) {
    Growth growth(regions.pixels());
    for (int region = first; region < end; ++region) {
      growth.run(regions.begin(region), regions.begin(region + 1));
    }
  });
  regions.writeBack(maps);
}

} // namespace

void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask, GrowthRegions& regions) {
  if (phase.empty()) {
    return;
  }
  cv::Size const size = phase.size();
  requireMap(phase, "phase map", CV_32FC1, size);
  requireMap(quality, "quality map", CV_32FC1, size);
  requireMap(state, "state map", CV_8UC1, size);
  requireMap(code, "code map", CV_16SC1, size);
  requireMask(mask, size);
  cv::Mat_<float> const fixedQuality = mayOverlap(quality, phase) ? quality.clone() : quality;
  cv::Mat const fixedMask = mayOverlap(mask, state) ? mask.clone() : mask;
  unwrap({phase, fixedQuality, state, code, fixedMask}, regions);
}

void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask) {
  GrowthRegions regions;
  unwrap_phase(phase, quality, state, code, mask, regions);
}

} // namespace vorn::mv
