// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/large_array.hpp"
#include "sl/unwrap_seeding.hpp"

namespace vorn::mv {

constexpr std::uint32_t noGrowthPixel = 0xFFFFFFFFU;

/// A pixel that growth may give a phase, with all that growth asks of its surroundings.
struct GrowthPixel {
  float phase; ///< wrapped, then absolute or -1
  float quality;
  float known[4];      ///< absolute phases of the left, right, upper and lower neighbour; NaN: none yet
  std::uint32_t upper; ///< index; `noGrowthPixel`: closed to growth
  std::uint32_t lower;
  bool hasLeft; ///< the left neighbour is the pixel before
  bool hasRight;
  uchar state;
};

/// The pixels that growth may reach, taken out of the maps and put together region by region.
///
/// Growth in one region of 4-connected pixels without a phase never sees another region, so each one can be
/// grown on its own. In the maps a region runs over thousands of memory pages; gathered, it fits the caches.
/// Takes 44 bytes for each pixel that is without a phase and can be reached, 8 for each that cannot.
class GrowthRegions {
public:
  /// Forgets everything but the memory.
  void clear();

  /// Takes the pixels of the next row, from the second row on; `open` as `UnwrapSeeding::nextRow` returns it.
  void addRow(std::vector<uchar> const& open, uchar const* state);

  /// After the last row: takes from the maps what growth asks of the pixels.
  void gather(UnwrapMaps const& maps);

  /// Puts phases and states back into the maps.
  void writeBack(UnwrapMaps const& maps) const;

  /// All pixels, region after region, in row order within each.
  GrowthPixel* pixels() const { return pixels_; }

  int count() const { return static_cast<int>(starts_.size()) - 1; }
  /// The index of a region's first pixel; of `count()`, the number of pixels.
  std::uint32_t begin(int region) const { return starts_[static_cast<std::size_t>(region)]; }

private:
  struct OpenPixel {
    std::int32_t column;
    std::uint32_t place; ///< its label at first, then its index in `pixels_` or `noGrowthPixel`
  };
  struct Label {
    std::uint32_t parent; ///< the label itself in the one that stands for a region
    std::uint32_t size;   ///< in pixels; then the index of the region's next pixel
    bool isSeeded;        ///< growth starts somewhere in it
  };

  std::uint32_t regionOf(std::uint32_t label);
  void unite(std::uint32_t a, std::uint32_t b);
  void layOut();
  void gatherRow(int row, UnwrapMaps const& maps) const;
  OpenPixel const* rowBegin(int row) const {
    return open_.data() + rowStarts_[static_cast<std::size_t>(row)];
  }

  std::vector<OpenPixel> open_;        ///< row by row
  std::vector<std::size_t> rowStarts_; ///< of each row of the maps in `open_`, and the end of the last
  std::vector<Label> labels_;
  std::vector<std::uint32_t> starts_; ///< of each region in `pixels_`, and the end of the last
  ReusedArray<GrowthPixel> memory_;
  GrowthPixel* pixels_ = nullptr;
};

} // namespace vorn::mv
