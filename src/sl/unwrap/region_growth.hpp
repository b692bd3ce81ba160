// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "sl/unwrap/growth_queue.hpp"
#include "sl/unwrap/unwrap_regions.hpp"
#include "sl/unwrap/unwrap_seeding.hpp"

namespace vorn::mv {

/// Growth in one region after another: of its waiting pixels the one of best quality takes the fringe order
/// that fits an unwrapped neighbour, and those beside it wait in turn.
class RegionGrowth {
public:
  RegionGrowth(UnwrapMaps const& maps, GrowthRegions const& regions) : maps_(maps), regions_(regions) {}

  /// Grows a region that is gathered.
  void growGathered(int region);

  /// Grows a large region, in the maps.
  void growLarge(int region);

private:
  void growGatheredPixel(GrowthPixel* pixels, std::uint32_t index);
  void growMapPixel(std::uint32_t index);
  void sortSeedsIntoBands(int region);
  std::uint32_t indexOf(int row, int column) const {
    return static_cast<std::uint32_t>(row) * static_cast<std::uint32_t>(maps_.size().width) +
           static_cast<std::uint32_t>(column);
  }

  UnwrapMaps maps_;
  GrowthRegions const& regions_;
  GrowthQueue queue_;
  std::vector<std::uint32_t> seeds_;    ///< of a large region, band after band of falling quality
  std::vector<std::uint32_t> bandEnds_; ///< in `seeds_`
};

/// Grows all regions that `regions` has been given the rows of.
void growRegions(UnwrapMaps const& maps, GrowthRegions& regions);

} // namespace vorn::mv
