// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/step_levels.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

#include "sl/phase/flicker.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t steps = 4;
/// Pixels enough for means to a hundredth of the noise.
constexpr double pixelsTaken = 300000.0;
/// Cells of like brightness, which are joined to classes of as many pixels each.
constexpr std::size_t cells = 256;
constexpr std::size_t classes = 8;
constexpr std::int64_t fewestOfClass = 200;

/// Sums over lit pixels of like brightness.
struct LitSums {
  std::int64_t count = 0;
  std::array<std::int64_t, steps> levels{};
  double squares = 0.0;       ///< of twice the amplitude
  double excessSquares = 0.0; ///< of P0 - P1 + P2 - P3

  void add(LitSums const& other) {
    count += other.count;
    for (std::size_t k = 0; k < steps; ++k) {
      levels[k] += other.levels[k];
    }
    squares += other.squares;
    excessSquares += other.excessSquares;
  }
};

using Cells = std::array<LitSums, cells>;

template <class T>
void addRow(sl::GreyStack const& stack, int y, LitLimits const& limits, Cells& sums) {
  std::array<T const*, steps> rows{};
  for (std::size_t k = 0; k < steps; ++k) {
    rows[k] = stack.images[k].ptr<T>(y);
  }
  auto const perCell = static_cast<double>(cells) / (steps * (stack.white + 1.0));
  for (int x = 0; x < stack.images[0].cols; ++x) {
    std::array<std::int64_t, steps> const v{rows[0][x], rows[1][x], rows[2][x], rows[3][x]};
    auto const sine = static_cast<double>(v[0] - v[2]);
    auto const cosine = static_cast<double>(v[1] - v[3]);
    double const square = sine * sine + cosine * cosine;
    auto const sum = static_cast<double>(v[0] + v[1] + v[2] + v[3]);
    bool const isClipped = *std::max_element(v.begin(), v.end()) >= stack.white;
    if (square < 4.0 * limits.amplitude * limits.amplitude || sum > steps * limits.mean || isClipped) {
      continue;
    }
    auto const cell = static_cast<std::size_t>(perCell * sum);
    LitSums& own = sums[std::min(cell, cells - 1)];
    ++own.count;
    for (std::size_t k = 0; k < steps; ++k) {
      own.levels[k] += v[k];
    }
    own.squares += square;
    auto const excess = static_cast<double>(v[0] - v[1] + v[2] - v[3]);
    own.excessSquares += excess * excess;
  }
}

Cells sumsOf(sl::GreyStack const& stack, LitLimits const& limits) {
  Cells sums;
  cv::Mat const& first = stack.images[0];
  int const rowStep = std::max(1, static_cast<int>(static_cast<double>(first.total()) / pixelsTaken));
  for (int y = rowStep / 2; y < first.rows; y += rowStep) {
    first.depth() == CV_8U ? addRow<std::uint8_t>(stack, y, limits, sums)
                           : addRow<std::uint16_t>(stack, y, limits, sums);
  }
  return sums;
}

StepLevels levelsOf(LitSums const& sums, std::array<float, 4> const& factors) {
  auto const count = static_cast<double>(sums.count);
  std::array<double, steps> means{};
  for (std::size_t k = 0; k < steps; ++k) {
    means[k] = static_cast<double>(factors[k]) * static_cast<double>(sums.levels[k]) / count;
  }
  double const excess = means[0] - means[1] + means[2] - means[3];
  double const amplitude = 0.5 * std::sqrt(sums.squares / count);
  std::array<double, steps> sorted = means;
  std::sort(sorted.begin(), sorted.end());
  double const usual = 0.5 * (sorted[1] + sorted[2]);
  StepLevels result;
  // What noise may make of the mean is none of it.
  constexpr double deviations = 4.0;
  double const chance = deviations * std::sqrt(sums.excessSquares) / count;
  result.phaseError = std::max(0.0, std::fabs(excess) - chance) / (2.0 * amplitude);
  for (std::size_t k = 0; k < steps; ++k) {
    if (std::fabs(means[k] - usual) > std::fabs(means[result.image] - usual)) {
      result.image = k;
    }
  }
  result.level = means[result.image];
  result.usual = usual;
  return result;
}

/// To three digits.
std::string shortNumber(double value) {
  std::ostringstream stream;
  stream.precision(3);
  stream << value;
  return stream.str();
}

} // namespace

std::string StepLevels::text() const {
  constexpr double dark = 0.02; // of the others
  std::string const how = level < dark * usual
                              ? "is dark"
                              : "has a mean of " + shortNumber(level) + ", the other steps " +
                                    shortNumber(usual) + " in the same pixels";
  return how + ", which turns the phase by up to " + shortNumber(phaseError) + " rad (limit " +
         shortNumber(mostPhaseError) + "): a frame was lost, or a lamp or the exposure changed";
}

StepLevels stepLevels(sl::GreyStack const& stack, LitLimits const& limits) {
  std::array<float, 4> const factors =
      sl::flickerCorrection(stack.images, static_cast<int>(std::lround(limits.mean)), stack.white);
  Cells const sums = sumsOf(stack, limits);
  std::int64_t count = 0;
  for (LitSums const& cell : sums) {
    count += cell.count;
  }
  std::int64_t const ofClass =
      std::max<std::int64_t>(fewestOfClass, count / static_cast<std::int64_t>(classes));
  StepLevels worst;
  LitSums own;
  for (LitSums const& cell : sums) {
    own.add(cell);
    if (own.count >= ofClass) {
      StepLevels const found = levelsOf(own, factors);
      worst = found.phaseError > worst.phaseError ? found : worst;
      own = {};
    }
  }
  return worst;
}

} // namespace vorn::mv
