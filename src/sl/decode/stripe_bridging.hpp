// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "core/progress.hpp"
#include "sl/coding/code_check.hpp"
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
  float perFringe;
  float first; ///< stripe in which the coordinate 0 lies, with its fraction

  /// As the scanner's own code has them: one a fringe, which begins half a projector pixel before it.
  explicit StripeSpacing(int period) : perFringe(1.0F), first(0.5F / static_cast<float>(period)) {}
  /// @param shift  by how many pixels stripe 0 begins before pixel 0
  StripeSpacing(float period, float cell, float shift)
      : perFringe(period / cell), first((shift + 0.5F) / cell) {}
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

  void alongRow(int y);
  void alongColumns(int block);

private:
  int stripeAt(std::size_t index) const;
  void bridge(std::size_t from, std::size_t step, int length);
  void settle(std::size_t from, std::size_t step, int const* orders, int count);

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
};

/// Bridges all columns over `stripeBorderReach`.
void bridgeColumns(ScanDecodingSettings const& settings, StripeSpacing const& stripes, ScanMaps& maps,
                   Progress const& progress);

} // namespace vorn::mv::sl
