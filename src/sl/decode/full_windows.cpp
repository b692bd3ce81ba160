// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/full_windows.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorn::mv::sl {

namespace {

constexpr float largest = std::numeric_limits<float>::max();

} // namespace

FullWindows::FullWindows(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int radius)
    : map_(map), sigma_(sigma), radius_(radius), middleSquare_(radius * (radius + 1) / 3.0),
      samples_((2 * radius + 1) * (2 * radius + 1)) {
  int const side = 2 * radius + 1;
  for (int i = -radius; i <= radius; ++i) {
    squareNorm_ += side * std::pow(i * i - middleSquare_, 2);
    lineNorm_ += side * i * i;
  }
  crossNorm_ = std::pow(lineNorm_ / side, 2);
  gain_ = 1.0 / samples_ + 2.0 * middleSquare_ * middleSquare_ / squareNorm_;
  linesOf_.assign(static_cast<std::size_t>(side), -1);
  lines_.assign(static_cast<std::size_t>(side), std::vector<Line>(static_cast<std::size_t>(map.cols)));
  sums_.resize(static_cast<std::size_t>(map.cols));
}

void FullWindows::read(int y) {
  row_ = y;
  bool const hasRows = y >= radius_ && y + radius_ < map_.rows;
  std::fill(sums_.begin(), sums_.end(), Sums{0, 0, 0, 0, 0, 0, 0, 0, 0.0F, largest, hasRows});
  for (int dy = -radius_; hasRows && dy <= radius_; ++dy) {
    readLine(y + dy);
    add(y, dy);
  }
}

void FullWindows::readLine(int y) {
  auto const ring = static_cast<std::size_t>(y % (2 * radius_ + 1));
  if (linesOf_[ring] == y) {
    return;
  }
  linesOf_[ring] = y;
  float const* const map = map_[y];
  float const* const sigma = sigma_[y];
  for (int x = 0; x < map_.cols; ++x) {
    Line line{0, 0, 0, 0, 0, 0.0F, largest, x >= radius_ && x + radius_ < map_.cols && map[x] >= 0.0F};
    auto const middle = static_cast<double>(map[x]);
    for (int dx = -radius_; line.isWhole && dx <= radius_; ++dx) {
      double const d = static_cast<double>(map[x + dx]) - middle;
      float const spread = sigma[x + dx];
      line.one += d;
      line.x += dx * d;
      line.xx += (dx * dx - middleSquare_) * d;
      line.squares += d * d;
      line.variances += static_cast<double>(spread) * static_cast<double>(spread);
      line.weakest = std::max(line.weakest, spread);
      line.strongest = std::min(line.strongest, spread);
      line.isWhole = map[x + dx] >= 0.0F;
    }
    lines_[ring][static_cast<std::size_t>(x)] = line;
  }
}

void FullWindows::add(int y, int dy) {
  double const side = 2 * radius_ + 1;
  double const fyy = dy * dy - middleSquare_;
  float const* const middle = map_[y];
  float const* const lineMiddle = map_[y + dy];
  std::vector<Line> const& lines = lines_[static_cast<std::size_t>((y + dy) % (2 * radius_ + 1))];
  for (int x = radius_; x < map_.cols - radius_; ++x) {
    auto const i = static_cast<std::size_t>(x);
    Line const& line = lines[i];
    Sums& sums = sums_[i];
    double const d = static_cast<double>(lineMiddle[x]) - static_cast<double>(middle[x]);
    double const one = line.one + side * d;
    sums.one += one;
    sums.x += line.x;
    sums.y += dy * one;
    sums.xx += line.xx;
    sums.xy += dy * line.x;
    sums.yy += fyy * one;
    sums.squares += line.squares + 2.0 * d * line.one + side * d * d;
    sums.variances += line.variances;
    sums.weakest = std::max(sums.weakest, line.weakest);
    sums.strongest = std::min(sums.strongest, line.strongest);
    sums.isWhole = sums.isWhole && line.isWhole;
  }
}

std::optional<WindowFit> FullWindows::fit(int x) const {
  Sums const& sums = sums_[static_cast<std::size_t>(x)];
  // Beyond that, the weights count that a fit with one for all leaves out.
  constexpr float alike = 1.4F;
  bool const isInside = x >= radius_ && x + radius_ < map_.cols;
  if (!isInside || !sums.isWhole || sums.weakest > alike * sums.strongest) {
    return std::nullopt;
  }
  WindowFit fit;
  double const variance = sums.variances / samples_;
  double const mean = sums.one / samples_;
  fit.value = static_cast<double>(map_(row_, x)) + mean - middleSquare_ * (sums.xx + sums.yy) / squareNorm_;
  fit.variance = gain_ * variance;
  double const explained = mean * sums.one + (sums.x * sums.x + sums.y * sums.y) / lineNorm_ +
                           (sums.xx * sums.xx + sums.yy * sums.yy) / squareNorm_ +
                           sums.xy * sums.xy / crossNorm_;
  fit.excess = (sums.squares - explained) / variance;
  fit.freedom = samples_ - 6;
  return fit;
}

} // namespace vorn::mv::sl
