// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/progress.hpp"
#include "sl/unwrap/growth_queue.hpp"
#include "sl/unwrap/unwrap_regions.hpp"
#include "sl/unwrap/unwrap_seeding.hpp"

namespace vorn::mv {

/// Growth in one region after another: of its waiting pixels the one of best quality takes the fringe order
/// that fits an unwrapped neighbour, and those beside it wait in turn.
///
/// `Maps` is `UnwrapMaps` or a type that offers the same: rows as growth sees them, and whether what else is
/// known of a pixel accepts its absolute phase. A pixel that does not is closed: nothing grows from it.
template <class Maps>
class RegionGrowth {
public:
  RegionGrowth(Maps const& maps, GrowthRegions const& regions, Progress const& progress = {})
      : maps_(maps), regions_(regions), progress_(progress) {}

  /// Grows a region that is gathered.
  void growGathered(int region);

  /// Grows a large region, in the maps.
  void growLarge(int region);

private:
  void growGatheredPixel(GrowthPixel* pixels, std::uint32_t index);
  void growMapPixel(std::uint32_t index);
  void sortSeedsIntoBands(int region);
  void askNowAndThen();
  std::uint32_t indexOf(int row, int column) const {
    return static_cast<std::uint32_t>(row) * static_cast<std::uint32_t>(maps_.size().width) +
           static_cast<std::uint32_t>(column);
  }

  Maps maps_;
  GrowthRegions const& regions_;
  Progress progress_;
  std::uint32_t turns_ = 0;
  GrowthQueue queue_;
  std::vector<std::uint32_t> seeds_;    ///< of a large region, band after band of falling quality
  std::vector<std::uint32_t> bandEnds_; ///< in `seeds_`
};

/// Grows all regions that `regions` has been given the rows of.
template <class Maps>
void growRegions(Maps const& maps, GrowthRegions& regions, Progress const& progress = {});

} // namespace vorn::mv
