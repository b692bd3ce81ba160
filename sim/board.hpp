// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/types.hpp>
#include <vector>

namespace vorn::sim {

/// Dark rectangles on brighter ground, as chessboards and their markers are printed. Their edges are drawn
/// exactly, their corners to a hundredth of a pixel and better.
class Board {
public:
  /// @param parts mm on the surface, none over another
  /// @param cell about the size of the parts, mm
  Board(std::vector<cv::Rect2d> parts, double darkAlbedo, double cell);

  double darkAlbedo() const { return darkAlbedo_; }

  /// The dark share of a patch around a place that spans `du` and `dv`, mm.
  double darkShare(cv::Vec2d const& uv, cv::Vec2d const& du, cv::Vec2d const& dv) const;

private:
  cv::Rect cellsAround(cv::Rect2d const& area) const;

  std::vector<cv::Rect2d> parts_;
  double darkAlbedo_;
  double cell_;
  cv::Rect cells_;                               ///< that hold parts
  std::vector<std::vector<std::size_t>> inCell_; ///< the parts that reach into each cell
};

/// The dark squares of a chessboard with so many inner corners, the first of which is at (0, 0) between dark
/// squares at its upper left and lower right.
std::vector<cv::Rect2d> chessboardParts(cv::Size const& corners, double side);

} // namespace vorn::sim
