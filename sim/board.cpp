// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/board.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <utility>

#include "sim/coverage.hpp"

namespace vorn::sim {
namespace {

/// How far a patch reaches from its middle along an axis.
double reachOf(double du, double dv) {
  return 0.5 * (std::abs(du) + std::abs(dv));
}

/// Whether a patch reaches over an edge along one axis.
bool crosses(double from, double to, double middle, double reach) {
  return std::abs(from - middle) < reach || std::abs(to - middle) < reach;
}

/// The share of a patch between two edges along one axis.
double between(double from, double to, double middle, double du, double dv) {
  return coverage(middle - to, du, dv) - coverage(middle - from, du, dv);
}

} // namespace

Board::Board(std::vector<cv::Rect2d> parts, double darkAlbedo, double cell)
    : parts_(std::move(parts)), darkAlbedo_(darkAlbedo), cell_(cell) {
  for (cv::Rect2d const& part : parts_) {
    cells_ |= cellsAround(part);
  }
  inCell_.resize(static_cast<std::size_t>(cells_.area()));
  for (std::size_t i = 0; i < parts_.size(); ++i) {
    cv::Rect const around = cellsAround(parts_[i]);
    for (int y = around.y; y < around.br().y; ++y) {
      for (int x = around.x; x < around.br().x; ++x) {
        inCell_[static_cast<std::size_t>((y - cells_.y) * cells_.width + x - cells_.x)].push_back(i);
      }
    }
  }
}

cv::Rect Board::cellsAround(cv::Rect2d const& area) const {
  cv::Point const first(cvFloor(area.x / cell_), cvFloor(area.y / cell_));
  cv::Point const last(cvFloor(area.br().x / cell_), cvFloor(area.br().y / cell_));
  return {first, last + cv::Point(1, 1)};
}

double Board::darkShare(cv::Vec2d const& uv, cv::Vec2d const& du, cv::Vec2d const& dv) const {
  cv::Vec2d const reach(reachOf(du[0], dv[0]), reachOf(du[1], dv[1]));
  cv::Rect const cells =
      cellsAround({uv[0] - reach[0], uv[1] - reach[1], 2 * reach[0], 2 * reach[1]}) & cells_;
  std::vector<std::size_t> near;
  for (int y = cells.y; y < cells.br().y; ++y) {
    for (int x = cells.x; x < cells.br().x; ++x) {
      auto const& own = inCell_[static_cast<std::size_t>((y - cells_.y) * cells_.width + x - cells_.x)];
      near.insert(near.end(), own.begin(), own.end());
    }
  }
  std::sort(near.begin(), near.end());
  near.erase(std::unique(near.begin(), near.end()), near.end());
  double share = 0;
  for (std::size_t const number : near) {
    cv::Rect2d const& part = parts_[number];
    bool const isCorner = crosses(part.x, part.br().x, uv[0], reach[0]) && // of both axes: not their product
                          crosses(part.y, part.br().y, uv[1], reach[1]);
    int const pieces = isCorner ? 8 : 1;
    double own = 0;
    for (int j = 0; j < pieces; ++j) {
      for (int i = 0; i < pieces; ++i) {
        double const a = (i + 0.5) / pieces - 0.5;
        double const b = (j + 0.5) / pieces - 0.5;
        cv::Vec2d const at = uv + a * du + b * dv;
        own += between(part.x, part.br().x, at[0], du[0] / pieces, dv[0] / pieces) *
               between(part.y, part.br().y, at[1], du[1] / pieces, dv[1] / pieces);
      }
    }
    share += own / (pieces * pieces);
  }
  return share;
}

std::vector<cv::Rect2d> chessboardParts(cv::Size const& corners, double side) {
  std::vector<cv::Rect2d> parts;
  for (int row = -1; row < corners.height; ++row) {
    for (int column = -1; column < corners.width; ++column) {
      if ((row + column) % 2 == 0) {
        parts.emplace_back(column * side, row * side, side, side);
      }
    }
  }
  return parts;
}

} // namespace vorn::sim
