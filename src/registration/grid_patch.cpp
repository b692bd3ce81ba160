// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/grid_patch.hpp"

#include <algorithm>

namespace vorn::mv {

std::optional<cv::Vec2d> cellsBeside(cv::Vec3d const& offset, cv::Vec3d const& a, cv::Vec3d const& b) {
  double const aa = a.dot(a);
  double const ab = a.dot(b);
  double const bb = b.dot(b);
  double const determinant = aa * bb - ab * ab;
  if (!(determinant > 1e-6 * aa * bb)) {
    return std::nullopt;
  }
  return cv::Vec2d((bb * a.dot(offset) - ab * b.dot(offset)) / determinant,
                   (aa * b.dot(offset) - ab * a.dot(offset)) / determinant);
}

GridPatch::GridPatch(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& usable, cv::Point const& cell,
                     bool isCoarse)
    : points_(points), usable_(usable), cell_(cell), middle_(points(cell)), u_(along({1, 0}, isCoarse)),
      v_(along({0, 1}, isCoarse)), twist_(twist()) {}

bool GridPatch::has(cv::Point const& way) const {
  cv::Point const cell = cell_ + way;
  return cell.x >= 0 && cell.y >= 0 && cell.x < usable_.cols && cell.y < usable_.rows && usable_(cell) != 0;
}

cv::Vec3d GridPatch::offsetAt(cv::Point const& way) const {
  return cv::Vec3d(points_(cell_ + way)) - middle_;
}

GridPatch::Parabola GridPatch::along(cv::Point const& way, bool isCoarse) const {
  Parabola found;
  found.hasNext = has(way);
  found.hasLast = has(-way);
  if (found.hasNext && found.hasLast) {
    cv::Vec3d const next = offsetAt(way);
    cv::Vec3d const last = offsetAt(-way);
    found.slope = (next - last) * 0.5;
    found.bend = next + last;
    if (isCoarse && has(2 * way) && has(-2 * way)) {
      found.slope = found.slope * (4.0 / 3.0) - (offsetAt(2 * way) - offsetAt(-2 * way)) * (1.0 / 12.0);
    }
  } else if (found.hasNext || found.hasLast) {
    int const side = found.hasNext ? 1 : -1;
    cv::Vec3d const first = offsetAt(side * way);
    if (has(2 * side * way)) {
      cv::Vec3d const second = offsetAt(2 * side * way);
      found.slope = (first * 4.0 - second) * (0.5 * side);
      found.bend = second - first * 2.0;
    } else {
      found.slope = first * side;
    }
  }
  return found;
}

/// The mean of the quadrants whose cells are all there.
cv::Vec3d GridPatch::twist() {
  cv::Vec3d sum;
  for (int const right : {-1, 1}) {
    for (int const down : {-1, 1}) {
      if ((right > 0 ? u_.hasNext : u_.hasLast) && (down > 0 ? v_.hasNext : v_.hasLast) &&
          has({right, down})) {
        sum += (offsetAt({right, down}) - offsetAt({right, 0}) - offsetAt({0, down})) * (1.0 * right * down);
        ++quadrants_;
      }
    }
  }
  return sum * (1.0 / std::max(1, quadrants_));
}

std::optional<cv::Vec2d> GridPatch::cellsTo(cv::Vec3d const& point) const {
  return cellsBeside(point - middle_, u_.slope, v_.slope);
}

cv::Vec3d GridPatch::at(cv::Vec2d const& cells) const {
  double const u = cells[0];
  double const v = cells[1];
  return middle_ + u_.slope * u + v_.slope * v + u_.bend * (0.5 * u * u) + v_.bend * (0.5 * v * v) +
         twist_ * (u * v);
}

bool GridPatch::isBeyondRim(cv::Vec2d const& cells) const {
  constexpr double reach = 0.5;
  return (cells[0] > reach && !u_.hasNext) || (cells[0] < -reach && !u_.hasLast) ||
         (cells[1] > reach && !v_.hasNext) || (cells[1] < -reach && !v_.hasLast);
}

} // namespace vorn::mv
