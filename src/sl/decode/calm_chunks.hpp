// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/pi.hpp"
#include "sl/decode/absolute_phase.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Phases that change by no more than this from pixel to pixel make no edge.
constexpr float calmStep = 0.6F * piFloat;

/// Whether the phases of a row are all known, and change by no more than `calmStep` to the next one.
bool isCalmAlong(float const* phase, int n);

/// Whether the phases of two rows are all known, and change by no more than `calmStep` from one to the other.
bool isCalmAcross(float const* phase, float const* below, int n);

/// Pieces of rows in which no edge can be, judging by phases alone: most of a clean scan. A piece is calm
/// along its row or across to the row above together with the two pixels on either side of it; no piece at
/// the border of the image is.
class CalmChunks {
public:
  static constexpr int length = 64;
  static constexpr int pad = 2;
  static constexpr uchar along = 1;
  static constexpr uchar across = 2;

  /// None is calm.
  explicit CalmChunks(cv::Size const& size)
      : size_(size), flags_(size.height, (size.width + length - 1) / length, uchar{0}) {}

  int perRow() const { return flags_.cols; }
  uchar& at(int y, int chunk) { return flags_(y, chunk); }
  uchar at(int y, int chunk) const { return flags_(y, chunk); }

  /// Whether pieces [first, end) of a row are calm along it, so that all their pixels are known.
  bool isAlong(int y, int first, int end) const {
    uchar const* const flags = flags_[y];
    return std::all_of(flags + first, flags + end, [](uchar flag) { return (flag & along) != 0; });
  }

  /// Pixels [begin, end) of a row.
  struct Pixels {
    int begin;
    int end;
  };
  Pixels pixelsOf(int chunk) const { return {chunk * length, std::min((chunk + 1) * length, size_.width)}; }
  /// With those beside them that lie in the image.
  Pixels around(int chunk) const {
    return {std::max(0, chunk * length - pad), std::min((chunk + 1) * length + pad, size_.width)};
  }

private:
  cv::Size size_;
  cv::Mat_<uchar> flags_;
};

/// Finds calm pieces row by row while the rows are in the cache, and writes their coordinates.
class CalmWalk {
public:
  CalmWalk(ScanMaps const& maps, float pixelsPerRadian, CalmChunks& calm, cv::Mat_<float>& coordinates);

  /// Looks at a row whose known pixels stay as they are. Rows in order are compared with each other.
  void read(int y);

private:
  ScanMaps const& maps_;
  float pixelsPerRadian_;
  CalmChunks& calm_;
  cv::Mat_<float>& coordinates_;
  std::vector<float> own_; ///< absolute phases, with unknown ones on both sides
  std::vector<float> above_;
  int row_ = -1; ///< that `own_` holds
};

} // namespace vorn::mv::sl
