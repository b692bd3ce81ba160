// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/region_growth.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "core/parallel.hpp"
#include "core/pi.hpp"

namespace vorn::mv {

namespace {

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
    float const order = floorOf(static_cast<float>((absolute - wrapped) / CV_2PI + 0.5));
    float const candidate = order * twoPiFloat + wrapped;
    float const distance = std::abs(candidate - absolute);
    // Which neighbours are unwrapped is as good as random: selecting is cheaper than branching.
    bool const isBetter = distance < bestDistance;
    bestDistance = isBetter ? distance : bestDistance;
    best = isBetter ? candidate : best;
  }
  return bestDistance < piFloat ? Fit{best, true} : Fit{rejected, false};
}

} // namespace

void RegionGrowth::growGatheredPixel(GrowthPixel* pixels, std::uint32_t index) {
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
      queue_.push(told.quality, neighbour);
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
    growGatheredPixel(pixels, queue_.pop());
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
      auto const pixels = maps_.row(row);
      for (int x = run.begin; x < run.end; ++x) {
        if (pixels.state(x) == unwrap_state::waiting) {
          visit(bandOf(pixels.quality(x)), indexOf(row, x));
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
  auto const columns = static_cast<std::uint32_t>(maps_.size().width);
  std::uint32_t next = 0;
  queue_.clear();
  for (std::uint32_t const end : bandEnds_) {
    if (next == end) {
      continue;
    }
    queue_.clearSeeds();
    for (; next < end; ++next) {
      std::uint32_t const index = seeds_[next];
      auto const row = maps_.row(static_cast<int>(index / columns));
      queue_.addSeed(row.quality(static_cast<int>(index % columns)), index);
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
  cv::Size const size = maps_.size();
  int const row = static_cast<int>(index / static_cast<std::uint32_t>(size.width));
  int const column = static_cast<int>(index % static_cast<std::uint32_t>(size.width));
  using Row = decltype(maps_.row(row));
  struct Neighbour {
    Row pixels;
    int row;
    int column;
    bool isInside; ///< not on the border of the maps
  };
  Row const own = maps_.row(row);
  std::array<Neighbour, 4> const neighbours = {
      {{own, row, column - 1, column > 1},
       {own, row, column + 1, column < size.width - 2},
       {maps_.row(row - 1), row - 1, column, row > 1},
       {maps_.row(row + 1), row + 1, column, row < size.height - 2}}};
  std::array<float, 4> known{};
  std::transform(neighbours.begin(), neighbours.end(), known.begin(), [](Neighbour const& n) {
    return n.isInside ? n.pixels.known(n.column) : std::numeric_limits<float>::quiet_NaN();
  });
  Fit const fit = fitOrder(own.wrapped(column), known);
  if (!fit.isFound) {
    own.settle(column, fit.absolute, unwrap_state::waiting);
    return;
  }
  own.settle(column, fit.absolute, unwrap_state::unwrapped);
  for (Neighbour const& n : neighbours) {
    if (n.isInside && n.pixels.isOpen(n.column)) {
      n.pixels.wait(n.column);
      queue_.push(n.pixels.quality(n.column), indexOf(n.row, n.column));
    }
  }
}

namespace {

/// Part of the pixels that is gathered at a time. On most scans one batch takes all of them.
constexpr std::size_t batchesPerMap = 16;

} // namespace

void growRegions(UnwrapMaps const& maps, GrowthRegions& regions) {
  regions.layOut(static_cast<std::uint32_t>(static_cast<std::size_t>(maps.size().area()) / batchesPerMap));
  for (int batch = 0; batch < regions.batchCount(); ++batch) {
    regions.gather(batch, maps);
    int const large = batch == 0 ? regions.largeCount() : 0;
    parallelRows(large + regions.count(), [&](int first, int end) {
      RegionGrowth growth(maps, regions);
      for (int region = first; region < end; ++region) {
        if (region < large) {
          growth.growLarge(region);
        } else {
          growth.growGathered(region - large);
        }
      }
    });
    regions.writeBack(maps);
  }
}

} // namespace vorn::mv
