// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <vector>
#include <vorn/mv/pointcloud/octree.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// Finds the place of points on a cloud with normals. Read-only once built: several threads may ask.
class SurfaceMatcher {
public:
  static constexpr unsigned none = std::numeric_limits<unsigned>::max();

  /// @param cloud with normals; must outlive this
  explicit SurfaceMatcher(PointCloud const& cloud);

  /// From now on the surface is read between its points wherever there are some to read it from. A list has
  /// no grid for that: there it is the mean of the points around a place, so that they count about alike,
  /// whichever is nearest. At the rims of a grid it is what the cells inwards lead to, and ends half a cell
  /// beyond the last one.
  /// @param isCoarse points stand for many others, far apart and with little noise: slopes between the cells
  /// of a grid are of higher order
  void readBetweenPoints(bool isCoarse);

  /// The cell of the cloud at which a point lies, or `none` when it lies beside the surface or is farther
  /// away than `maxDistance`.
  /// @param start where to begin: the place of a point near by, or `none`; without a grid it only saves time
  unsigned find(cv::Vec3d const& point, unsigned start, double maxDistance) const;

  cv::Vec3d pointAt(unsigned cell) const { return cv::Vec3d(points_(rowOf(cell), columnOf(cell))); }
  /// The place of the surface nearest to a point that lies at a cell. On a grid it is interpolated: cells
  /// beside the point by the same share everywhere would draw by the error of their normals' slope times that
  /// share, which is largest at rims: there it is when it is read between points, and nothing where the point
  /// lies beyond the rim.
  std::optional<cv::Vec3d> footOf(cv::Vec3d const& point, unsigned cell) const;
  cv::Vec3d normalAt(unsigned cell) const { return cv::Vec3d(normals_(rowOf(cell), columnOf(cell))); }
  /// Whether a cell has a point and a normal.
  bool isUsable(int row, int column) const { return usable_(row, column) != 0; }
  std::size_t usableCount() const { return usableCount_; }
  cv::Vec3d middle() const { return middle_; }
  /// RMS distance of the points to their middle.
  double size() const { return size_; }
  /// How finely single precision resolves the coordinates farthest from the origin.
  double resolution() const;
  /// Typical distance of neighbours.
  double spacing() const { return spacing_; }

private:
  int rowOf(unsigned cell) const { return static_cast<int>(cell) / points_.cols; }
  int columnOf(unsigned cell) const { return static_cast<int>(cell) % points_.cols; }
  bool isUsableCell(int row, int column) const {
    return row >= 0 && row < usable_.rows && column >= 0 && column < usable_.cols && isUsable(row, column);
  }
  std::optional<cv::Vec3d> gridFoot(cv::Vec3d const& point, unsigned cell) const;
  cv::Vec3d listFoot(cv::Vec3d const& point, unsigned cell) const;
  cv::Vec3d tangent(int row, int column, int down, int right) const;
  unsigned nearest(cv::Vec3d const& point, unsigned start, double maxDistance) const;
  /// The usable cell nearest to the middle of a block of cells; `none` where it has none.
  unsigned middleCell(int firstRow, int firstColumn, int stride) const;
  unsigned walk(cv::Vec3d const& point, unsigned start) const;

  cv::Mat_<cv::Vec3f> points_;
  cv::Mat_<cv::Vec3f> normals_;
  cv::Mat_<uchar> usable_;
  bool isGrid_;
  bool isReadBetween_ = false;
  bool isCoarse_ = false;
  std::size_t usableCount_ = 0;
  cv::Vec3d middle_;
  double size_ = 0.0;
  double spacing_ = 0.0;
  cv::Mat_<cv::Vec3f> indexed_;        ///< the points that the tree holds
  std::vector<unsigned> indexedCells_; ///< their cells
  GridOctree tree_;
  std::vector<std::vector<unsigned>>
      around_; ///< cells around each cell of a list; empty: it is read at points
};

} // namespace vorn::mv
