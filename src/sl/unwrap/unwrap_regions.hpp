// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/large_array.hpp"
#include "sl/unwrap/unwrap_seeding.hpp"

namespace vorn::mv {

/// No pixel, where the index of one is asked for.
constexpr std::uint32_t noGrowthPixel = 0xFFFFFFFFU;

/// The pixels that growth may reach, in regions.
///
/// Growth in one region of 4-connected pixels without a phase never sees another region, so each one can be
/// grown on its own. In the maps a region runs over thousands of memory pages; taken out of them and put
/// together it fits the caches. That takes memory, so regions are gathered in batches; one that exceeds a
/// batch fits no cache either way and is left in the maps.
///
/// Takes 36 bytes for each pixel of a batch and 12 for each run of pixels in a row.
class GrowthRegions {
public:
  /// Pixels begin <= x < end of a row.
  struct Run {
    std::int32_t begin;
    std::int32_t end;
    std::uint32_t region; ///< a label; once gathered, `gathered` and the index of its first pixel

    static constexpr std::uint32_t gathered = 0x80000000U;
    bool isGathered() const { return (region & gathered) != 0; }
    /// Of a gathered run, the index of the pixel in a column.
    std::uint32_t placeOf(int column) const {
      return (region & ~gathered) + static_cast<std::uint32_t>(column - begin);
    }
  };

  /// Forgets everything but the memory.
  void clear();

  /// Takes the pixels of the next row, from the second row on; `open` as `UnwrapSeeding::nextRow` returns it.
  /// @param waiting the state of the pixels that growth starts from
  void addRow(std::vector<uchar> const& open, uchar const* state, uchar waiting);

  /// After the last row: divides the regions that growth starts in into batches of at most `limit` pixels.
  void layOut(std::uint32_t limit);

  int batchCount() const { return static_cast<int>(batches_.size()) - 1; }
  /// Takes from the maps what growth asks of the pixels of a batch.
  void gather(int batch, UnwrapMaps const& maps);
  /// Puts phases and states of the gathered pixels back into the maps.
  void writeBack(UnwrapMaps const& maps);

  /// The gathered pixels, region after region, in row order within each.
  GrowthPixel* pixels() const { return pixels_; }
  /// Gathered regions.
  int count() const { return static_cast<int>(endRegion_ - firstRegion_); }
  /// The index of a gathered region's first pixel; of `count()`, the number of pixels.
  std::uint32_t begin(int region) const {
    return starts_[firstRegion_ + static_cast<std::size_t>(region)] - starts_[firstRegion_];
  }

  /// Regions of more than `limit` pixels that growth starts in.
  int largeCount() const { return static_cast<int>(large_.size()); }
  /// Calls visit(row, run) for the runs of a large region, in row order.
  template <class Visit>
  void forEachRunOfLarge(int region, Visit const& visit) const {
    std::uint32_t const label = large_[static_cast<std::size_t>(region)];
    for (std::size_t row = 1; row < rows_.size(); ++row) {
      for (Run const* run = rows_[row].begin; run < rows_[row].end; ++run) {
        if (!run->isGathered() && labels_[run->region].parent == label) {
          visit(static_cast<int>(row), *run);
        }
      }
    }
  }

private:
  /// The label of runs that growth is done with: that of a region in which it does not start.
  static constexpr std::uint32_t grownLabel = 0;

  struct Label {
    std::uint32_t parent; ///< the label itself in the one that stands for a region
    /// In pixels; of a region then the number of its next pixel, counted over all batches, or `noGrowthPixel`
    /// when it is in none.
    std::uint32_t size;
    bool isSeeded; ///< growth starts somewhere in it
  };

  /// The runs of a row of the maps.
  struct Row {
    Run* begin;
    Run* end;
  };

  void unite(std::uint32_t a, std::uint32_t b);
  void settleLabels();
  void placeBatch(int batch);
  void gatherRow(int row, UnwrapMaps const& maps) const;
  Row const& rowAt(int row) const { return rows_[static_cast<std::size_t>(row)]; }

  RowStore<Run> runs_;
  std::vector<Row> rows_; ///< from the first row of the maps on, which has none, to the last but one
  SegmentedArray<Label> labels_;
  std::vector<std::uint32_t> large_;  ///< labels
  std::vector<std::uint32_t> starts_; ///< of each region, counted over all batches, and the end of the last
  std::vector<std::size_t> batches_;  ///< the first region of each in `starts_`, and the end of the last
  std::size_t firstRegion_ = 0;       ///< of those gathered
  std::size_t endRegion_ = 0;
  ReusedArray<GrowthPixel> memory_;
  GrowthPixel* pixels_ = nullptr;
};

} // namespace vorn::mv
