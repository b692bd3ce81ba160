// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/grid_tile.hpp"

#include <algorithm>
#include <cmath>

#include "core/simd.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

/// Splits points into planes relative to an origin; 0 for those that do not count.
VORN_TARGET_CLONES
void splitPoints(float const* __restrict points, uchar const* __restrict state, int count,
                 float const* __restrict origin, float* __restrict x, float* __restrict y,
                 float* __restrict z, float* __restrict present) {
  float const ox = origin[0];
  float const oy = origin[1];
  float const oz = origin[2];
  for (int i = 0; i < count; ++i) {
    float const px = points[3 * i];
    float const py = points[3 * i + 1];
    float const pz = points[3 * i + 2];
    // 0 for numbers, NaN as soon as one is NaN or infinite.
    float const zero = (px * 0.0F + py * 0.0F) + pz * 0.0F;
    bool const counts = (zero == 0.0F) & (state[i] == 0);
    x[i] = counts ? px - ox : 0.0F;
    y[i] = counts ? py - oy : 0.0F;
    z[i] = counts ? pz - oz : 0.0F;
    present[i] = counts ? 1.0F : 0.0F;
  }
}

/// Adds a mark to the cells from which it is a step to the cell `next` numbers on, both being present.
VORN_TARGET_CLONES
void markRow(float const* __restrict x, float const* __restrict y, float const* __restrict z,
             float const* __restrict present, int next, int count, float limit, float* __restrict marks) {
  float const square = limit * limit;
  for (int i = 0; i < count; ++i) {
    float const dx = x[i + next] - x[i];
    float const dy = y[i + next] - y[i];
    float const dz = z[i + next] - z[i];
    float const mark = dx * dx + dy * dy + dz * dz > square ? GridTile::stepMark : 0.0F;
    marks[i] += mark * present[i] * present[i + next];
  }
}

/// Whether a point has a neighbour among the eight around it and a step to each of them.
bool isLonely(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int row, int column,
              GridSteps const& steps) {
  cv::Vec3f const& here = points(row, column);
  for (int r = std::max(row - 1, 0); r <= std::min(row + 1, points.rows - 1); ++r) {
    for (int c = std::max(column - 1, 0); c <= std::min(column + 1, points.cols - 1); ++c) {
      if ((r != row || c != column) && state(r, c) == 0) {
        cv::Vec3f const difference = points(r, c) - here;
        float const limit = steps.of(std::abs(r - row), std::abs(c - column));
        if (difference.dot(difference) <= limit * limit) {
          return false;
        }
      }
    }
  }
  return true;
}

} // namespace

GridTile::GridTile(int radius) : radius_(radius), stride_((columns + 2 * radius + 15) / 8 * 8) {
  // One row more: the last one's neighbours below are read, and count nothing.
  auto const size = static_cast<std::size_t>(loadedRows() + 1) * static_cast<std::size_t>(stride_);
  for (std::vector<float>& plane : planes_) {
    plane.assign(size, 0.0F);
  }
  present_.assign(size, 0.0F);
  counts_.assign(size, 0.0F);
}

void GridTile::loadRow(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int row,
                       int firstColumn, int place) {
  int const begin = std::clamp(-firstColumn, 0, loadedColumns());
  int const end =
      row < 0 || row >= points.rows ? begin : std::clamp(points.cols - firstColumn, begin, loadedColumns());
  for (std::vector<float>* plane : {&planes_[0], &planes_[1], &planes_[2], &present_}) {
    std::fill_n(plane->begin() + place, begin, 0.0F);
    std::fill(plane->begin() + place + end, plane->begin() + place + stride_, 0.0F);
  }
  if (end > begin) {
    int const at = place + begin;
    splitPoints(points[row][firstColumn + begin].val, state[row] + firstColumn + begin, end - begin,
                origin_.val, planes_[0].data() + at, planes_[1].data() + at, planes_[2].data() + at,
                present_.data() + at);
  }
}

void GridTile::load(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int firstRow,
                    int firstColumn, GridSteps const& steps) {
  origin_ = {0.0F, 0.0F, 0.0F};
  bool found = false;
  for (int row = firstRow; row < std::min(firstRow + rows, points.rows) && !found; ++row) {
    for (int column = firstColumn; column < std::min(firstColumn + columns, points.cols) && !found;
         ++column) {
      found = state(row, column) == 0 && isFinite(points(row, column).val);
      origin_ = found ? points(row, column) : origin_;
    }
  }
  for (int i = 0; i < loadedRows(); ++i) {
    loadRow(points, state, firstRow - radius_ + i, firstColumn - radius_, i * stride_);
  }
  dropLonelyPoints(points, state, firstRow - radius_, firstColumn - radius_, steps);
  markSteps(steps);
}

bool GridTile::isStep(int a, int b, float limit) const {
  float square = 0.0F;
  for (std::vector<float> const& plane : planes_) {
    float const difference = plane[static_cast<std::size_t>(a)] - plane[static_cast<std::size_t>(b)];
    square += difference * difference;
  }
  return square > limit * limit;
}

void GridTile::dropLonelyPoints(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int firstRow,
                                int firstColumn, GridSteps const& steps) {
  int const size = loadedRows() * stride_;
  std::fill(counts_.begin(), counts_.end(), 0.0F);
  markRow(plane(0), plane(1), plane(2), present(), 1, size, steps.alongRow, counts_.data());
  for (int row = 0; row < loadedRows(); ++row) {
    for (int column = 0; column < loadedColumns(); ++column) {
      auto const i = static_cast<std::size_t>(row * stride_ + column);
      if (present_[i] == 0.0F) {
        continue;
      }
      bool const isLinkedOn = present_[i + 1] != 0.0F && counts_[i] == 0.0F;
      bool const isLinkedBack = column > 0 && present_[i - 1] != 0.0F && counts_[i - 1] == 0.0F;
      if (!isLinkedOn && !isLinkedBack &&
          isLonely(points, state, firstRow + row, firstColumn + column, steps)) {
        for (std::vector<float>& plane : planes_) {
          plane[i] = 0.0F;
        }
        present_[i] = 0.0F;
      }
    }
  }
}

void GridTile::markStepsOverGaps(int place, GridSteps const& steps) {
  int const column = place % stride_;
  int const row = place / stride_;
  auto const isPresent = [&](int at) { return present_[static_cast<std::size_t>(at)] != 0.0F; };
  for (int gap = 2; column + gap < loadedColumns() && gap <= 2 * radius_ && !isPresent(place + 1); ++gap) {
    if (isPresent(place + gap)) {
      counts_[static_cast<std::size_t>(place)] +=
          isStep(place, place + gap, steps.of(0, gap)) ? stepMark : 0.0F;
      break;
    }
  }
  for (int gap = 2; row + gap < loadedRows() && gap <= 2 * radius_ && !isPresent(place + stride_); ++gap) {
    if (isPresent(place + gap * stride_)) {
      bool const steps_ = isStep(place, place + gap * stride_, steps.of(gap, 0));
      counts_[static_cast<std::size_t>(place)] += steps_ ? stepMark : 0.0F;
      break;
    }
  }
}

void GridTile::markSteps(GridSteps const& steps) {
  int const size = loadedRows() * stride_;
  std::copy(present_.begin(), present_.end(), counts_.begin());
  markRow(plane(0), plane(1), plane(2), present(), 1, size, steps.alongRow, counts_.data());
  markRow(plane(0), plane(1), plane(2), present(), stride_, size, steps.alongColumn, counts_.data());
  for (int i = 0; i < size; ++i) {
    auto const at = static_cast<std::size_t>(i);
    if (present_[at] != 0.0F &&
        (present_[at + 1] == 0.0F || present_[at + static_cast<std::size_t>(stride_)] == 0.0F)) {
      markStepsOverGaps(i, steps);
    }
  }
}

} // namespace vorn::mv
