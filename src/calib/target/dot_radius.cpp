// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_radius.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include "calib/target/dot_levels.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// The share of a cell's light that comes from its dot; nothing where no dot stands out or the cell is not
/// wholly in the image. The cell is spanned by the steps to the next dots.
std::optional<double> shareOfLight(cv::Mat const& image, cv::Point2d const& centre, cv::Point2d const& stepX,
                                   cv::Point2d const& stepY) {
  constexpr int samples = 12;           // along either side of the cell
  constexpr double leastContrast = 3.0; // grey levels
  cv::Rect2d const inside(0, 0, image.cols - 1, image.rows - 1);
  auto const place = [&](double x, double y) { return centre + x * stepX + y * stepY; };
  double ground = 0;
  for (double const x : {-0.5, 0.5}) {
    for (double const y : {-0.5, 0.5}) {
      cv::Point2d const corner = place(x, y);
      if (!inside.contains(corner)) {
        return std::nullopt;
      }
      ground += 0.25 * greyAround(image, corner);
    }
  }
  double const contrast = greyAround(image, centre) - ground;
  if (contrast < leastContrast) {
    return std::nullopt;
  }
  double sum = 0;
  for (int i = 0; i < samples; ++i) {
    for (int j = 0; j < samples; ++j) {
      sum += greyAround(image, place((i + 0.5) / samples - 0.5, (j + 0.5) / samples - 0.5)) - ground;
    }
  }
  return sum / (samples * samples * contrast);
}

} // namespace

double radiusByLight(cv::Mat const& image, RawGrid const& grid) {
  constexpr std::size_t enough = 48; // dots, all over the grid
  std::size_t const every = std::max<std::size_t>(1, grid.dots().size() / enough);
  std::vector<double> shares;
  for (std::size_t i = 0; i < grid.dots().size(); i += every) {
    auto const dot = static_cast<int>(i);
    auto const x = grid.stepAt(dot, {1, 0});
    auto const y = grid.stepAt(dot, {0, 1});
    auto const share = x && y ? shareOfLight(image, grid.centre(dot), *x, *y) : std::nullopt;
    if (share) {
      shares.push_back(*share);
    }
  }
  return std::sqrt(std::max(medianOf(std::move(shares)), 0.0) / CV_PI);
}

} // namespace vorn::mv
