// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/bits.hpp"
#include "core/progress.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/coding/stripe_cells.hpp"
#include "sl/decode/calm_chunks.hpp"
#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// How far bridging goes from one known pixel to the next, and how far pixels of good contrast vouch for a
/// weak one between them: camera pixels, whatever the fringes' width. What is uncertain about the border of a
/// stripe is what the camera's blur and a projector pixel on either side cover, ten pixels of a camera that
/// has five to a projector pixel. Bridging gains nothing from 8 to 16 at any sampling from 0.75 to 5;
/// less loses pixels at 5, and more bridges over what only looks alike.
constexpr int stripeBorderReach = 16;

/// Where the stripes of a code lie along the fringe.
struct StripeSpacing {
  float period; ///< of the fringe, projector pixels
  StripeCells cells;
  int widthBits = -1; ///< stripes from pixel 0 on are 2^widthBits wide; negative where they are not

  /// As the scanner's own code has them: one a fringe.
  explicit StripeSpacing(int ofBoth)
      : period(static_cast<float>(ofBoth)), cells{static_cast<double>(ofBoth), 0.0} {
    int const bits = highestBit(static_cast<std::uint64_t>(ofBoth));
    widthBits = 1 << bits == ofBoth ? bits : -1;
  }
  /// @param shift  by how many pixels stripe 0 begins before pixel 0
  StripeSpacing(float ofFringe, double cell, double shift) : period(ofFringe), cells{cell, shift} {}

  /// The stripe at so many fringes from the projector's edge.
  int at(float fringes) const {
    double const pixel = static_cast<double>(period * fringes) + 0.5;
    // Truncation is floor here; it and a shift cost a tenth of floor and division.
    if (widthBits >= 0 && pixel >= 0.0) {
      return static_cast<int>(pixel) >> widthBits;
    }
    return cells.stripeOf(std::floor(pixel));
  }
};

/// Gives their orders to the pixels between two known ones of a row or a column, where following the phase
/// from one over a stripe border leads to the order of the other. Those among them that their own code images
/// contradict are closed.
class StripeBridging {
public:
  /// @param reach camera pixels from one known pixel to the next, at most
  StripeBridging(ScanDecodingSettings const& settings, StripeSpacing const& stripes, int reach,
                 ScanMaps& maps);

  static constexpr int longestReach = 64;

  /// Columns that are walked down together: what is kept for them stays in the first-level cache.
  static constexpr int columnBlock = 256;

  void alongRow(int y) {
    alongRow(y, isChecked_ ? reading_ + static_cast<std::size_t>(y) * stride_ : nullptr);
  }
  /// @param reading of the row's code images; not asked for where nothing is held against them
  void alongRow(int y, int const* reading);
  /// @param calm as `bridgeColumns` takes it
  void alongColumns(int block, CalmChunks const* calm = nullptr);

private:
  int stripeAt(std::size_t index) const;
  bool isWithinStripe(std::size_t from, std::size_t to) const { return stripeAt(from) == stripeAt(to); }
  /// @param reading of the first pixel; those of the others follow in the same steps
  void bridge(std::size_t from, std::size_t step, int length, int const* reading);
  void bridgeShort(std::size_t from, int length, int const* reading);
  void settle(std::size_t from, std::size_t step, int const* orders, int count, int const* reading);

  CodeCheck codes_;
  bool isChecked_;
  cv::Size size_;
  std::size_t stride_; ///< pixels from row to row in all maps
  float const* wrapped_;
  int const* reading_;
  short* order_;
  uchar* state_;
  StripeSpacing stripes_;
  int reach_;
  std::vector<int> borders_; ///< in a row, between known pixels and others
};

/// Bridges all columns over `stripeBorderReach`.
/// @param calm pieces of rows all of whose pixels are known; null when nothing is known of that
void bridgeColumns(ScanDecodingSettings const& settings, StripeSpacing const& stripes, CalmChunks const* calm,
                   ScanMaps& maps, Progress const& progress);

} // namespace vorn::mv::sl
