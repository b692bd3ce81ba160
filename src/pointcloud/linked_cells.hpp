// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "pointcloud/grid_tile.hpp"

namespace vorn::mv {

/// How well a plane fits the points that it was fitted to, see `NormalResult`.
struct PlaneFigures {
  float fitError = std::numeric_limits<float>::quiet_NaN();
  float curvature = std::numeric_limits<float>::quiet_NaN();
};

/// The present cells of one window of a tile that belong to the surface of its middle.
class LinkedCells {
public:
  LinkedCells(GridTile const& tile, GridSteps const& steps);

  /// Takes all present cells of the window around a cell of the tile.
  void takeWindow(int row, int column);

  /// Takes those that neighbours without a step between them link to the middle: along the middle column, or
  /// beside it where cells are missing, and from there along the rows.
  void takeLinked(int row, int column);

  /// The normal of the plane through the cells, turned to `view`; (0, 0, 0) when they lie on a line.
  /// @param view the viewpoint relative to the tile's origin
  cv::Vec3f normal(cv::Vec3f const& view) const;

  PlaneFigures figures(cv::Vec3f const& normal) const;

private:
  struct Cell {
    int row;
    int column;
  };

  /// How the next row of the window goes on.
  enum class Row { Missing, Linked, BehindStep };

  int placeOf(Cell const& cell) const { return cell.row * tile_.stride() + cell.column; }
  bool isPresent(Cell const& cell) const { return tile_.present()[placeOf(cell)] != 0.0F; }
  bool areLinked(Cell const& a, Cell const& b) const;
  /// Moves the anchor to the cell of the row that continues its column, or one close by.
  Row findAnchor(int row, Cell& anchor) const;
  void walkRow(Cell const& from);

  GridTile const& tile_;
  GridSteps const& steps_;
  Cell middle_{};
  std::vector<Cell> cells_;
};

} // namespace vorn::mv
