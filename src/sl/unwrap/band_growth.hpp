// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/progress.hpp"
#include "sl/unwrap/growth_queue.hpp"
#include "sl/unwrap/order_growth.hpp"

namespace vorn::mv::sl {

/// How far growth has got with an open pixel: one of these in the `growthBits` of its state.
namespace growth_step {
constexpr uchar none = 0x00;
constexpr uchar claimed = 0x04;      ///< its region has been grown, or is growing
constexpr uchar postponed = 0x08;    ///< its region reaches out of a band of the first pass
constexpr uchar claimedAgain = 0x0c; ///< as `claimed`, in the second pass
constexpr uchar left = 0x10;         ///< its region is for growth over all maps
} // namespace growth_step

/// A pass over all rows in bands. Regions that lie inside of a band are grown.
struct GrowthPass {
  uchar from;      ///< the step of pixels that it takes up, besides `none`
  uchar claimed;   ///< their step then
  uchar postponed; ///< and that of those in regions that reach out of the band
};

/// Growth of orders, region after region. What it works on at a time no other thread may change.
class BandGrowth {
public:
  explicit BandGrowth(OrderMaps const& maps, Progress const& progress = {});

  /// Takes up the regions with a waiting pixel in rows [firstRow, endRow) of the whole maps; reads and writes
  /// nothing else. Those that reach its first or last row, unless that is the first or last one inside the
  /// image's border, or that are large, are marked only.
  /// @param hasWaiting for each row, whether a pixel waits in it
  void growInside(int firstRow, int endRow, GrowthPass const& pass, std::vector<uchar> const& hasWaiting);

  /// Grows what earlier passes have left, in all rows.
  void growLeft(std::vector<uchar> const& hasWaiting);

private:
  enum class Extent { Inside, Across, Large };

  void prepare(GrowthPass const& pass);
  template <class Visit>
  void forEachWaiting(int row, Visit const& visit) const;
  Extent claim(std::uint32_t first);
  void markClaimed(uchar step);
  void grow();
  void takeTurn(std::uint32_t index);
  float qualityAt(std::uint32_t index) const;

  cv::Size size_;
  std::uint32_t stride_;
  float const* wrapped_;
  int const* reading_;
  short* order_;
  uchar* state_;
  CodeCheck codes_;
  bool isChecked_;
  Progress progress_;
  std::uint32_t turns_ = 0;
  std::uint32_t inside_ = 0;    ///< the band's first pixel that is not in its first row,
  std::uint32_t endInside_ = 0; ///< and the first one in its last row
  std::array<uchar, 256> claimed_{};
  std::vector<std::uint32_t> region_; ///< the pixels of the region that is claimed,
  std::size_t regionSize_ = 0;        ///< and how many they are
  GrowthQueue queue_;
};

} // namespace vorn::mv::sl
