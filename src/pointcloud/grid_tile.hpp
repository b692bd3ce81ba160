// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "pointcloud/grid_steps.hpp"

namespace vorn::mv {

/// A part of an organized cloud and the cells around it that windows reach, one plane a coordinate, relative
/// to a point of the part so that single precision keeps what matters.
class GridTile {
public:
  /// A mark in `counts()`; larger than the number of cells of any window.
  static constexpr float stepMark = 4096.0F;
  /// The largest window radius for which that holds.
  static constexpr int largestRadius = 31;
  /// Size of a part.
  static constexpr int rows = 64;
  static constexpr int columns = 128;

  explicit GridTile(int radius);

  /// Takes the cells [firstRow, firstRow + rows) x [firstColumn, firstColumn + columns) and `radius` more on
  /// each side; cells outside the grid are missing.
  void load(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int firstRow, int firstColumn,
            GridSteps const& steps);

  int radius() const { return radius_; }
  int loadedRows() const { return rows + 2 * radius_; }
  int loadedColumns() const { return columns + 2 * radius_; }
  /// Numbers from a row of a plane to the next; past the columns they are 0.
  int stride() const { return stride_; }
  cv::Vec3f const& origin() const { return origin_; }

  /// Coordinates relative to the origin; 0 where `present()` is.
  float const* plane(int axis) const { return planes_[axis].data(); }
  /// 1 for points, 0 for cells without one and for points that no neighbour links to.
  float const* present() const { return present_.data(); }
  /// The same, with `stepMark` added where the surface steps to the next point of the row or the column.
  float const* counts() const { return counts_.data(); }

private:
  void loadRow(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int row, int firstColumn,
               int place);
  void dropLonelyPoints(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int firstRow,
                        int firstColumn, GridSteps const& steps);
  void markSteps(GridSteps const& steps);
  void markStepsOverGaps(int place, GridSteps const& steps);
  bool isStep(int a, int b, float limit) const;

  int radius_;
  int stride_;
  cv::Vec3f origin_;
  std::vector<float> planes_[3];
  std::vector<float> present_;
  std::vector<float> counts_;
};

} // namespace vorn::mv
