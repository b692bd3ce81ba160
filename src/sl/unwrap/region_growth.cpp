// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/region_growth.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

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

struct Fit {
  float absolute; ///< phase; `rejected` when no order fits
  bool isFound;
};

/// The absolute phase of the fringe order that fits one of the neighbours best.
/// @param known absolute phases; NaN: none
Fit fitOrder(float wrapped, std::array<float, 4> const& known) {
  float best = rejected;
  float bestDistance = 9999.0F;
  for (float const absolute : known) {
    float const order = floorOf(static_cast<float>((absolute - wrapped) / twoPi + 0.5));
    float const candidate = order * twoPiFloat + wrapped;
    float const distance = std::abs(candidate - absolute);
    // Which neighbours are unwrapped is as good as random: selecting is cheaper than branching.
    bool const isBetter = distance < bestDistance;
    bestDistance = isBetter ? distance : bestDistance;
    best = isBetter ? candidate : best;
  }
  return bestDistance < piFloat ? Fit{best, true} : Fit{rejected, false};
}

void growGatheredPixel(GrowthPixel* pixels, std::uint32_t index, GrowthQueue& queue) {
  GrowthPixel& pixel = pixels[index];
  Fit const fit = fitOrder(pixel.phase, pixel.known);
  pixel.phase = fit.absolute;
  if (!fit.isFound) {
    return;
  }
  pixel.state = unwrap_state::unwrapped;
  auto const tell = [&](std::uint32_t neighbour, std::size_t side) {
    GrowthPixel& told = pixels[neighbour];
    told.known[side] = fit.absolute;
    if (told.state == unwrap_state::unreached) {
      told.state = unwrap_state::waiting;
      queue.push(told.quality, neighbour);
    }
  };
  if (pixel.hasLeft) {
    tell(index - 1, 1);
  }
  if (pixel.hasRight) {
    tell(index + 1, 0);
  }
  if (pixel.upper != noGrowthPixel) {
    tell(pixel.upper, 3);
  }
  if (pixel.lower != noGrowthPixel) {
    tell(pixel.lower, 2);
  }
}

} // namespace

void RegionGrowth::growGathered(int region) {
  GrowthPixel* const pixels = regions_.pixels();
  queue_.clear();
  for (std::uint32_t k = regions_.begin(region); k < regions_.begin(region + 1); ++k) {
    if (pixels[k].state == unwrap_state::waiting) {
      queue_.addSeed(pixels[k].quality, k);
    }
  }
  queue_.sortSeeds();
  while (!queue_.empty()) {
    growGatheredPixel(pixels, queue_.pop(), queue_);
  }
}

/// Keys for all seeds at once would be the larger part of the memory; indices, and keys for one band after
/// the other, take half of it.
void RegionGrowth::sortSeedsIntoBands(int region) {
  constexpr std::size_t bandCount = std::size_t{1} << 16;
  constexpr unsigned int bandShift = 48;
  auto const bandOf = [](float quality) {
    return static_cast<std::size_t>(~GrowthQueue::keyOf(quality, 0) >> bandShift);
  };
  auto const forEachSeed = [&](auto const& visit) {
    regions_.forEachRunOfLarge(region, [&](int row, GrowthRegions::Run const& run) {
      uchar const* const states = maps_.state.ptr<uchar>(row);
      float const* const qualities = maps_.quality[row];
      for (int x = run.begin; x < run.end; ++x) {
        if (states[x] == unwrap_state::waiting) {
          visit(bandOf(qualities[x]), indexOf(row, x));
        }
      }
    });
  };
  bandEnds_.assign(bandCount, 0);
  forEachSeed([&](std::size_t band, std::uint32_t /*index*/) { ++bandEnds_[band]; });
  std::uint32_t begin = 0;
  for (std::uint32_t& band : bandEnds_) {
    std::uint32_t const size = band;
    band = begin;
    begin += size;
  }
  seeds_.resize(begin);
  forEachSeed([&](std::size_t band, std::uint32_t index) { seeds_[bandEnds_[band]++] = index; });
}

void RegionGrowth::growLarge(int region) {
  sortSeedsIntoBands(region);
  auto const columns = static_cast<std::uint32_t>(maps_.phase.cols);
  std::uint32_t next = 0;
  queue_.clear();
  for (std::uint32_t const end : bandEnds_) {
    if (next == end) {
      continue;
    }
    queue_.clearSeeds();
    for (; next < end; ++next) {
      std::uint32_t const index = seeds_[next];
      queue_.addSeed(maps_.quality[static_cast<int>(index / columns)][index % columns], index);
    }
    queue_.sortSeeds();
    while (queue_.hasSeeds()) {
      growMapPixel(queue_.pop());
    }
  }
  while (!queue_.empty()) {
    growMapPixel(queue_.pop());
  }
}

void RegionGrowth::growMapPixel(std::uint32_t index) {
  cv::Size const size = maps_.phase.size();
  int const row = static_cast<int>(index / static_cast<std::uint32_t>(size.width));
  int const column = static_cast<int>(index % static_cast<std::uint32_t>(size.width));
  struct Neighbour {
    int row;
    int column;
    bool isInside; ///< not on the border of the maps
  };
  std::array<Neighbour, 4> const neighbours = {{{row, column - 1, column > 1},
                                                {row, column + 1, column < size.width - 2},
                                                {row - 1, column, row > 1},
                                                {row + 1, column, row < size.height - 2}}};
  std::array<uchar*, 4> states{};
  std::array<float, 4> known{};
  for (std::size_t side = 0; side < neighbours.size(); ++side) {
    Neighbour const& n = neighbours[side];
    states[side] = maps_.state.ptr<uchar>(n.row) + n.column;
    constexpr float none = std::numeric_limits<float>::quiet_NaN();
    known[side] =
        (*states[side] == unwrap_state::unwrapped) & n.isInside ? maps_.phase[n.row][n.column] : none;
  }
  float& phase = maps_.phase[row][column];
  Fit const fit = fitOrder(phase, known);
  phase = fit.absolute;
  if (!fit.isFound) {
    return;
  }
  maps_.state.ptr<uchar>(row)[column] = unwrap_state::unwrapped;
  for (std::size_t side = 0; side < neighbours.size(); ++side) {
    Neighbour const& n = neighbours[side];
    bool const isOpen = n.isInside && *states[side] == unwrap_state::unreached &&
                        (maps_.mask.empty() || maps_.mask.ptr<uchar>(n.row)[n.column] != 0);
    if (isOpen) {
      *states[side] = unwrap_state::waiting;
      queue_.push(maps_.quality[n.row][n.column], indexOf(n.row, n.column));
    }
  }
}

} // namespace vorn::mv
