// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/linked_cells.hpp"

#include <cmath>
#include <cstdlib>

namespace vorn::mv {

LinkedCells::LinkedCells(GridTile const& tile, GridSteps const& steps) : tile_(tile), steps_(steps) {
  cells_.reserve(static_cast<std::size_t>((2 * tile.radius() + 1) * (2 * tile.radius() + 1)));
}

void LinkedCells::takeWindow(int row, int column) {
  middle_ = {row, column};
  cells_.clear();
  for (int r = row - tile_.radius(); r <= row + tile_.radius(); ++r) {
    for (int c = column - tile_.radius(); c <= column + tile_.radius(); ++c) {
      if (isPresent({r, c})) {
        cells_.push_back({r, c});
      }
    }
  }
}

bool LinkedCells::areLinked(Cell const& a, Cell const& b) const {
  int const from = placeOf(a);
  int const to = placeOf(b);
  float square = 0.0F;
  for (int axis = 0; axis < 3; ++axis) {
    float const difference = tile_.plane(axis)[to] - tile_.plane(axis)[from];
    square += difference * difference;
  }
  float const limit = steps_.of(std::abs(a.row - b.row), std::abs(a.column - b.column));
  return square <= limit * limit;
}

void LinkedCells::walkRow(Cell const& from) {
  cells_.push_back(from);
  for (int const direction : {-1, 1}) {
    Cell last = from;
    Cell next = from;
    for (next.column += direction; std::abs(next.column - middle_.column) <= tile_.radius();
         next.column += direction) {
      if (isPresent(next)) {
        if (!areLinked(last, next)) {
          break;
        }
        cells_.push_back(next);
        last = next;
      }
    }
  }
}

LinkedCells::Row LinkedCells::findAnchor(int row, Cell& anchor) const {
  Row found = Row::Missing;
  for (int const shift : {0, -1, 1, -2, 2}) {
    Cell const cell{row, anchor.column + shift};
    if (std::abs(cell.column - middle_.column) <= tile_.radius() && isPresent(cell)) {
      if (areLinked(anchor, cell)) {
        anchor = cell;
        return Row::Linked;
      }
      found = Row::BehindStep;
    }
  }
  return found;
}

void LinkedCells::takeLinked(int row, int column) {
  middle_ = {row, column};
  cells_.clear();
  walkRow(middle_);
  for (int const direction : {-1, 1}) {
    Cell anchor = middle_;
    for (int away = 1; away <= tile_.radius(); ++away) {
      Row const found = findAnchor(row + direction * away, anchor);
      if (found == Row::BehindStep) {
        break;
      }
      if (found == Row::Linked) {
        walkRow(anchor);
      }
    }
  }
}

cv::Vec3f LinkedCells::normal(cv::Vec3f const& view) const {
  double count = 0.0;
  double u = 0.0;
  double v = 0.0;
  double uu = 0.0;
  double uv = 0.0;
  double vv = 0.0;
  cv::Vec3d sum;
  cv::Vec3d alongRow;
  cv::Vec3d alongColumn;
  for (Cell const& cell : cells_) {
    int const place = placeOf(cell);
    double const du = cell.column - middle_.column;
    double const dv = cell.row - middle_.row;
    cv::Vec3d const point(tile_.plane(0)[place], tile_.plane(1)[place], tile_.plane(2)[place]);
    count += 1.0;
    u += du;
    v += dv;
    uu += du * du;
    uv += du * dv;
    vv += dv * dv;
    sum += point;
    alongRow += du * point;
    alongColumn += dv * point;
  }
  // Whole numbers, so that cells on a line give exactly 0.
  double const spread =
      (count * uu - u * u) * (count * vv - v * v) - (count * uv - u * v) * (count * uv - u * v);
  cv::Vec3d const cross = (count * alongRow - u * sum).cross(count * alongColumn - v * sum);
  double const length = std::sqrt(cross.dot(cross));
  if (!(spread > 0.0) || !(length > 0.0) || !std::isfinite(length)) {
    return {};
  }
  int const place = placeOf(middle_);
  cv::Vec3d const toView(static_cast<double>(view[0]) - tile_.plane(0)[place],
                         static_cast<double>(view[1]) - tile_.plane(1)[place],
                         static_cast<double>(view[2]) - tile_.plane(2)[place]);
  return cross * ((cross.dot(toView) < 0.0 ? -1.0 : 1.0) / length);
}

PlaneFigures LinkedCells::figures(cv::Vec3f const& normal) const {
  auto const pointOf = [&](Cell const& cell) {
    int const place = placeOf(cell);
    return cv::Vec3d(tile_.plane(0)[place], tile_.plane(1)[place], tile_.plane(2)[place]);
  };
  cv::Vec3d mean;
  for (Cell const& cell : cells_) {
    mean += pointOf(cell);
  }
  auto const count = static_cast<double>(cells_.size());
  mean /= count;
  double offPlane = 0.0;
  double scatter = 0.0;
  for (Cell const& cell : cells_) {
    cv::Vec3d const offset = pointOf(cell) - mean;
    double const distance = offset.dot(cv::Vec3d(normal));
    offPlane += distance * distance;
    scatter += offset.dot(offset);
  }
  return {static_cast<float>(std::sqrt(offPlane / count)), static_cast<float>(offPlane / scatter)};
}

} // namespace vorn::mv
