// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <vector>

#include "pointcloud/point_access.hpp"
#include "registration/surface_block.hpp"

namespace vorn::mv {

namespace {

/// So many blocks away a step may be in the window of a normal.
constexpr int blocksOfWindow = 2;

/// The block of a part of a grid. Two points of a surface and their normals p, n, q, m have
/// (p - q)(n + m) = 0 as long as its curvature does not change: so the block's height and the distances of
/// its points are found as those of points are when clouds are registered.
SurfaceBlock gridBlock(PointCloud const& cloud, int firstRow, int firstColumn) {
  int const endRow = std::min(firstRow + blockSide, cloud.points().rows);
  int const endColumn = std::min(firstColumn + blockSide, cloud.points().cols);
  cv::Vec3d points[blockSide * blockSide];
  cv::Vec3d normals[blockSide * blockSide];
  int count = 0;
  cv::Vec3d normal;
  SurfaceBlock block;
  for (int row = firstRow; row < endRow; ++row) {
    for (int column = firstColumn; column < endColumn; ++column) {
      cv::Vec3f const& own = cloud.normals()(row, column);
      cv::Vec3f const& point = cloud.points()(row, column);
      if (cloud.state()(row, column) == 0 && isFinite(point.val) && own.dot(own) > 0.5F) {
        points[count] = cv::Vec3d(point);
        normals[count] = cv::Vec3d(own);
        block.place += points[count];
        normal += normals[count];
        ++count;
      }
    }
  }
  double const length = std::sqrt(normal.dot(normal));
  if (count < blockSide * blockSide / 2 || !(length > leastAgreement * count)) {
    return {};
  }
  block.count = count;
  block.place *= 1.0 / count;
  block.normal = normal * (1.0 / length);
  double heights = 0.0;
  double squares = 0.0;
  for (int i = 0; i < count; ++i) {
    cv::Vec3d const offset = points[i] - block.place;
    double const height = 0.5 * offset.dot(normals[i] + block.normal);
    heights += height;
    squares += height * height;
    block.radius += offset.dot(offset);
  }
  block.lift = heights / count;
  block.squares = std::max(0.0, squares - heights * heights / count);
  block.radius = std::sqrt(block.radius / count);
  return block;
}

/// The largest height of the blocks around over a block of a grid. Windows of normals reach that far, so a
/// step there has turned its normal.
double bendOf(std::vector<SurfaceBlock> const& blocks, int columns, int row, int column) {
  auto const at = [&](int r, int c) -> SurfaceBlock const& {
    return blocks[static_cast<std::size_t>(r) * static_cast<std::size_t>(columns) +
                  static_cast<std::size_t>(c)];
  };
  int const rows = static_cast<int>(blocks.size()) / columns;
  SurfaceBlock const& own = at(row, column);
  double most = own.count > 0.0 ? std::sqrt(own.squares / own.count) : 0.0;
  for (int r = std::max(0, row - blocksOfWindow); r <= std::min(rows - 1, row + blocksOfWindow); ++r) {
    for (int c = std::max(0, column - blocksOfWindow); c <= std::min(columns - 1, column + blocksOfWindow);
         ++c) {
      SurfaceBlock const& other = at(r, c);
      if (other.count > 0.0) {
        most = std::max(most, std::abs(0.5 * (other.place - own.place).dot(other.normal + own.normal)));
      }
    }
  }
  return most;
}

} // namespace

SurfaceBlocks gridBlocks(PointCloud const& cloud, Progress const& progress) {
  int const rows = (cloud.points().rows + blockSide - 1) / blockSide;
  int const columns = (cloud.points().cols + blockSide - 1) / blockSide;
  std::vector<SurfaceBlock> blocks(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns));
  parallelRows(rows, 16, progress, "blocks", [&](int first, int end) {
    for (int row = first; row < end; ++row) {
      for (int column = 0; column < columns; ++column) {
        blocks[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
               static_cast<std::size_t>(column)] = gridBlock(cloud, row * blockSide, column * blockSide);
      }
    }
  });
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      SurfaceBlock& block = blocks[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
                                   static_cast<std::size_t>(column)];
      block.bend = bendOf(blocks, columns, row, column);
      block.bendRadius = block.radius;
    }
  }
  std::vector<bool> const areSmooth = smoothOnes(blocks);
  cv::Mat_<cv::Vec3f> points(rows, columns, cv::Vec3f());
  cv::Mat_<cv::Vec3f> normals(rows, columns, cv::Vec3f());
  cv::Mat_<uchar> state(rows, columns, uchar{1});
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (areSmooth[i]) {
      auto const at = static_cast<int>(i);
      points(at / columns, at % columns) = cv::Vec3f(blocks[i].place + blocks[i].lift * blocks[i].normal);
      normals(at / columns, at % columns) = cv::Vec3f(blocks[i].normal);
      state(at / columns, at % columns) = 0;
    }
  }
  SurfaceBlocks result;
  result.cloud = PointCloud(points, true, normals);
  result.cloud.state() = state;
  result.side = blockSide;
  addFigures(blocks, areSmooth, result);
  return result;
}

} // namespace vorn::mv
