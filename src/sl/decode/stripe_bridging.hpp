// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sl/coding/code_check.hpp"
#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Gives their orders to the pixels between two known ones of a row or a column, where following the phase
/// from one over a stripe border leads to the order of the other. Those among them that their own code images
/// contradict are closed.
class StripeBridging {
public:
  /// @param reach camera pixels from one known pixel to the next, at most
  StripeBridging(ScanDecodingSettings const& settings, int reach, ScanMaps& maps);

  static constexpr int longestReach = 64;

  /// Columns that are walked down together: what is kept for them stays in the first-level cache.
  static constexpr int columnBlock = 256;

  void alongRow(int y);
  void alongColumns(int block);

private:
  float absolutePhase(cv::Point p) const;
  int stripeAt(cv::Point p) const;
  void bridge(cv::Point from, cv::Point step, int length);
  void settle(cv::Point p, int order);

  CodeCheck codes_;
  bool isChecked_;
  cv::Mat_<float> const& wrapped_;
  cv::Mat_<int> const& reading_;
  cv::Mat_<short>& order_;
  cv::Mat_<uchar>& state_;
  float border_;
  int reach_;
};

} // namespace vorn::mv::sl
