// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/patch_shift.hpp"

#include <algorithm>
#include <cmath>

#include <vorn/mv/scanner/view_figures.hpp>

#include "core/median.hpp"
#include "scanner/small_fit.hpp"

namespace vorn::mv {

std::optional<cv::Vec2d> shiftOf(cv::Mat_<float> const& from, cv::Mat_<float> const& to) {
  constexpr float clipped = 250;
  SmallFit<4> fit;
  double sum = 0;
  double squares = 0;
  for (int y = 1; y + 1 < from.rows; ++y) {
    for (int x = 1; x + 1 < from.cols; ++x) {
      if (from(y, x) >= clipped || to(y, x) >= clipped) {
        return std::nullopt;
      }
      double const byX = 0.5 * (static_cast<double>(from(y, x + 1)) - from(y, x - 1));
      double const byY = 0.5 * (static_cast<double>(from(y + 1, x)) - from(y - 1, x));
      fit.add({from(y, x), 1, byX, byY}, to(y, x));
      sum += to(y, x);
      squares += static_cast<double>(to(y, x)) * to(y, x);
    }
  }
  auto const solved = fit.solve();
  if (!solved || std::abs((*solved)[0]) < 1e-6) {
    return std::nullopt;
  }
  double const varied = squares - sum * sum / ((from.rows - 2.0) * (from.cols - 2.0));
  constexpr double leastExplained = 0.8;
  if (squares - fit.explainedBy(*solved) > (1 - leastExplained) * varied) {
    return cv::Vec2d(ViewFigures::largeMotion, 0);
  }
  return cv::Vec2d(-(*solved)[2] / (*solved)[0], -(*solved)[3] / (*solved)[0]);
}

double typicalShift(std::vector<std::optional<cv::Vec2d>> const& shifts) {
  std::vector<double> x;
  std::vector<double> y;
  for (auto const& shift : shifts) {
    if (shift) {
      x.push_back((*shift)[0]);
      y.push_back((*shift)[1]);
    }
  }
  constexpr std::size_t fewest = 10;
  return x.size() < fewest ? SequenceFigures::untold
                           : std::min(ViewFigures::largeMotion, std::hypot(medianAmong(x), medianAmong(y)));
}

} // namespace vorn::mv
