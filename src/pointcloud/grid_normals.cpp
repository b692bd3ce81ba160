// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/grid_normals.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "core/simd.hpp"
#include "pointcloud/grid_tile.hpp"
#include "pointcloud/linked_cells.hpp"
#include "pointcloud/window_sums.hpp"

namespace vorn::mv {

namespace {

/// The sums over the windows of one row of a tile, one number a column: of the cells, of their offsets from
/// the middle, and for each axis of the coordinate, and of the coordinate times each offset.
struct RowSums {
  enum Kind { Count, U, V, X, XU, XV, Y, YU, YV, Z, ZU, ZV, kinds };

  float values[kinds][GridTile::columns];
};

/// Sums over the windows' rows: what the plain sums and the moments of the four planes are.
struct ColumnSums {
  explicit ColumnSums(GridTile const& tile)
      : sums(4, std::vector<float>(static_cast<std::size_t>(tile.loadedRows() * tile.stride()))),
        moments(sums), values(sums[0].size()), scratch(sums[0].size()) {}

  std::vector<std::vector<float>> sums; ///< counts, x, y, z
  std::vector<std::vector<float>> moments;
  std::vector<float> values;
  std::vector<float> scratch;
};

VORN_TARGET_CLONES
void sumColumns(float const* plane, int count, int radius, int step, float* values, float* scratch,
                float* sums, float* moments) {
  int const size = (count + 2 * radius) * step;
  for (int i = 0; i < size; ++i) {
    values[i] = plane[i];
  }
  windowMoments(values, count, radius, step, scratch, sums, moments);
}

/// Sums along a row what was summed along the columns.
/// @param values,scratch room for a row
VORN_TARGET_CLONES
void sumRow(float const* columnSums, float const* columnMoments, int count, int radius, float* values,
            float* scratch, float* sums, float* along, float* across) {
  int const size = count + 2 * radius;
  for (int i = 0; i < size; ++i) {
    values[i] = columnSums[i];
  }
  windowMoments(values, count, radius, 1, scratch, sums, along);
  for (int i = 0; i < size; ++i) {
    values[i] = columnMoments[i];
  }
  windowSums(values, count, radius, across);
}

/// Cross products of the tangents, of length 1 and turned to `view`; NaN where there is none.
/// @param x,y,z the middle points
VORN_TARGET_CLONES
void crossTangents(RowSums const& row, float const* __restrict x, float const* __restrict y,
                   float const* __restrict z, float const* __restrict view, float* __restrict nx,
                   float* __restrict ny, float* __restrict nz) {
  using S = RowSums;
  auto const& v = row.values;
  for (int i = 0; i < GridTile::columns; ++i) {
    float const each = 1.0F / v[S::Count][i];
    float const u = v[S::U][i] * each;
    float const w = v[S::V][i] * each;
    float const ax = v[S::XU][i] - v[S::X][i] * u;
    float const ay = v[S::YU][i] - v[S::Y][i] * u;
    float const az = v[S::ZU][i] - v[S::Z][i] * u;
    float const bx = v[S::XV][i] - v[S::X][i] * w;
    float const by = v[S::YV][i] - v[S::Y][i] * w;
    float const bz = v[S::ZV][i] - v[S::Z][i] * w;
    float const cx = ay * bz - az * by;
    float const cy = az * bx - ax * bz;
    float const cz = ax * by - ay * bx;
    float const side = cx * (view[0] - x[i]) + cy * (view[1] - y[i]) + cz * (view[2] - z[i]);
    float const length = std::sqrt(cx * cx + cy * cy + cz * cz);
    float const scale = (side < 0.0F ? -1.0F : 1.0F) / length;
    nx[i] = cx * scale;
    ny[i] = cy * scale;
    nz[i] = cz * scale;
  }
}

/// Computes the normals of tiles; one for each thread.
class TileNormals {
public:
  TileNormals(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, NormalSettings const& settings,
              GridSteps const& steps, NormalField& field)
      : points_(points), state_(state), settings_(settings), steps_(steps), field_(field),
        tile_(settings.windowRadius), columns_(tile_), cells_(tile_, steps) {}

  void run(int firstRow, int firstColumn) {
    tile_.load(points_, state_, firstRow, firstColumn, steps_);
    float const* const planes[] = {tile_.counts(), tile_.plane(0), tile_.plane(1), tile_.plane(2)};
    for (std::size_t i = 0; i < 4; ++i) {
      sumColumns(planes[i], GridTile::rows, tile_.radius(), tile_.stride(), columns_.values.data(),
                 columns_.scratch.data(), columns_.sums[i].data(), columns_.moments[i].data());
    }
    int const endRow = std::min(firstRow + GridTile::rows, points_.rows);
    for (int row = firstRow; row < endRow; ++row) {
      runRow(row, firstColumn, row - firstRow);
    }
  }

private:
  void runRow(int row, int firstColumn, int tileRow) {
    int const radius = tile_.radius();
    float* const scratch = columns_.scratch.data();
    for (std::size_t i = 0; i < 4; ++i) {
      std::size_t const at = static_cast<std::size_t>(tileRow * tile_.stride());
      std::size_t const first = i == 0 ? std::size_t{RowSums::Count} : RowSums::X + 3 * (i - 1);
      sumRow(columns_.sums[i].data() + at, columns_.moments[i].data() + at, GridTile::columns, radius,
             columns_.values.data(), scratch, sums_.values[first], sums_.values[first + 1],
             sums_.values[first + 2]);
    }
    int const middle = (tileRow + radius) * tile_.stride() + radius;
    cv::Vec3f const view = cv::Vec3f(settings_.viewpoint) - tile_.origin();
    crossTangents(sums_, tile_.plane(0) + middle, tile_.plane(1) + middle, tile_.plane(2) + middle, view.val,
                  normals_[0], normals_[1], normals_[2]);
    int const endColumn = std::min(firstColumn + GridTile::columns, points_.cols);
    auto const leastCount = static_cast<float>((2 * radius + 1) * (2 * radius + 1)) / 2.0F;
    cv::Vec3f* const stored = field_.normals[row];
    for (int column = firstColumn; column < endColumn; ++column) {
      int const i = column - firstColumn;
      float const count = sums_.values[RowSums::Count][i];
      cv::Vec3f& normal = stored[column];
      if (tile_.present()[middle + i] == 0.0F) {
        normal = {0.0F, 0.0F, 0.0F};
      } else if (count >= leastCount && count < GridTile::stepMark) {
        normal = {normals_[0][i], normals_[1][i], normals_[2][i]};
        // The sum of the squares is NaN where a coordinate is, and where the tangents are parallel.
        normal = normal.dot(normal) > 0.5F ? normal : cv::Vec3f();
        if (settings_.figures != NormalFigures::None) {
          cells_.takeWindow(tileRow + radius, i + radius);
        }
      } else {
        cells_.takeLinked(tileRow + radius, i + radius);
        normal = cells_.normal(view);
      }
      if (settings_.figures != NormalFigures::None) {
        storeFigures(row, column);
      }
    }
  }

  void storeFigures(int row, int column) {
    cv::Vec3f const& normal = field_.normals(row, column);
    PlaneFigures const figures = normal == cv::Vec3f() ? PlaneFigures{} : cells_.figures(normal);
    field_.fitError(row, column) = figures.fitError;
    field_.curvature(row, column) = figures.curvature;
  }

  cv::Mat_<cv::Vec3f> const& points_;
  cv::Mat_<uchar> const& state_;
  NormalSettings const& settings_;
  GridSteps const& steps_;
  NormalField& field_;
  GridTile tile_;
  ColumnSums columns_;
  LinkedCells cells_;
  RowSums sums_{};
  float normals_[3][GridTile::columns] = {};
};

} // namespace

NormalField gridNormals(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                        NormalSettings const& settings, Progress const& progress) {
  NormalField field;
  field.normals.create(points.size());
  if (settings.figures != NormalFigures::None) {
    field.fitError.create(points.size());
    field.curvature.create(points.size());
  }
  GridSteps const steps = gridStepsOf(points, state, settings.maxStep);
  int const tileRows = (points.rows + GridTile::rows - 1) / GridTile::rows;
  parallelRows(tileRows, 1, progress, "normals", [&](int first, int end) {
    TileNormals normals(points, state, settings, steps, field);
    for (int tileRow = first; tileRow < end; ++tileRow) {
      for (int column = 0; column < points.cols; column += GridTile::columns) {
        normals.run(tileRow * GridTile::rows, column);
      }
    }
  });
  return field;
}

} // namespace vorn::mv
