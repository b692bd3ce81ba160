// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/surface_window.hpp"

#include <algorithm>
#include <cstdlib>

#include <Eigen/Cholesky>
#include <Eigen/Core>

namespace vorn::mv::sl {

namespace {

constexpr int terms = 6;

using Terms = Eigen::Matrix<double, terms, 1>;
using Equations = Eigen::Matrix<double, terms, terms>;

} // namespace

SurfaceWindow::SurfaceWindow(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int largestRadius)
    : map_(map), sigma_(sigma) {
  auto const side = static_cast<std::size_t>(2 * largestRadius + 1);
  isReached_.resize(side * side);
  joined_.reserve(side * side);
}

void SurfaceWindow::gather(int x, int y, int radius) {
  int const side = 2 * radius + 1;
  std::fill_n(isReached_.begin(), side * side, uchar{0});
  joined_.clear();
  auto const reach = [&](int dx, int dy) {
    if (std::abs(dx) > radius || std::abs(dy) > radius || x + dx < 0 || y + dy < 0 || x + dx >= map_.cols ||
        y + dy >= map_.rows || !(map_(y + dy, x + dx) >= 0.0F)) {
      return;
    }
    uchar& isReached = isReached_[static_cast<std::size_t>((dy + radius) * side + dx + radius)];
    if (isReached == 0) {
      isReached = 1;
      joined_.emplace_back(dx, dy);
    }
  };
  reach(0, 0);
  for (std::size_t i = 0; i < joined_.size(); ++i) {
    cv::Point const at = joined_[i];
    reach(at.x - 1, at.y);
    reach(at.x + 1, at.y);
    reach(at.x, at.y - 1);
    reach(at.x, at.y + 1);
  }
}

std::optional<WindowFit> SurfaceWindow::fit(int x, int y, int radius) {
  gather(x, y, radius);
  WindowFit fit;
  fit.freedom = static_cast<int>(joined_.size()) - terms;
  constexpr int leastFreedom = 3;
  if (fit.freedom < leastFreedom) {
    return std::nullopt;
  }
  auto const middle = static_cast<double>(map_(y, x));
  Equations equations = Equations::Zero();
  Terms right = Terms::Zero();
  double squares = 0.0;
  for (cv::Point const& at : joined_) {
    double const u = static_cast<double>(at.x) / radius;
    double const v = static_cast<double>(at.y) / radius;
    double const d = static_cast<double>(map_(y + at.y, x + at.x)) - middle;
    auto const s = static_cast<double>(sigma_(y + at.y, x + at.x));
    double const weight = 1.0 / (s * s);
    Terms const row{1.0, u, v, u * u, u * v, v * v};
    equations += weight * row * row.transpose();
    right += weight * d * row;
    squares += weight * d * d;
  }
  Eigen::LLT<Equations> const solver(equations);
  Terms const surface = solver.solve(right);
  fit.value = middle + surface[0];
  fit.variance = solver.solve(Terms::Unit(0))[0];
  fit.excess = squares - surface.dot(right);
  // A row of pixels, or two, leaves a term open, which shows as a variance that grew beyond the pixel's own.
  auto const own = static_cast<double>(sigma_(y, x));
  return solver.info() == Eigen::Success && fit.variance > 0.0 && fit.variance <= own * own
             ? std::optional(fit)
             : std::nullopt;
}

} // namespace vorn::mv::sl
