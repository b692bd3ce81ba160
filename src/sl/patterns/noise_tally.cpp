// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/noise_tally.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace vorn::mv::sl {

namespace {

/// Of a float, exponent and four bits of the fraction.
constexpr unsigned droppedBits = 19;
constexpr int perOctave = 16;
constexpr int smallestExponent = -32;
constexpr int exponentOfOne = 127;

float varianceAt(double bin) {
  double const octave = std::floor(bin / perOctave);
  double const part = bin / perOctave - octave;
  return static_cast<float>(std::ldexp(1.0 + part, static_cast<int>(octave) + smallestExponent));
}

} // namespace

void NoiseTally::add(int level, float variance) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &variance, sizeof bits);
  int const bin = static_cast<int>(bits >> droppedBits) - (exponentOfOne + smallestExponent) * perOctave;
  ++counts_[static_cast<std::size_t>(level * valueBins + std::clamp(bin, 0, valueBins - 1))];
}

void NoiseTally::add(NoiseTally const& other) {
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    counts_[i] += other.counts_[i];
  }
}

LevelNoise::LevelNoise(NoiseTally const& tally, float least) : all_(least) {
  using Counts = std::array<double, NoiseTally::valueBins>;
  auto const deviation = [&](Counts const& counts, double total) {
    double below = 0.0;
    for (std::size_t bin = 0; bin < counts.size(); ++bin) {
      if (below + counts[bin] >= 0.5 * total && counts[bin] > 0.0) {
        double const share = (0.5 * total - below) / counts[bin];
        return std::max(least, std::sqrt(varianceAt(static_cast<double>(bin) + share)));
      }
      below += counts[bin];
    }
    return least;
  };
  Counts all{};
  std::array<Counts, levelBins> own{};
  std::array<double, levelBins> totals{};
  for (std::size_t level = 0; level < levelBins; ++level) {
    for (std::size_t bin = 0; bin < all.size(); ++bin) {
      double const count = tally.counts_[level * all.size() + bin];
      own[level][bin] = count;
      all[bin] += count;
      totals[level] += count;
    }
  }
  double total = 0.0;
  for (double const count : totals) {
    total += count;
  }
  all_ = total > 0.0 ? deviation(all, total) : least;
  constexpr double fewest = 2000.0;
  for (std::size_t level = 0; level < levelBins; ++level) {
    byLevel_[level] = totals[level] >= fewest ? deviation(own[level], totals[level]) : all_;
  }
}

float medianOfSquares(int degrees) {
  constexpr float one = 0.45493642F;
  constexpr float two = 1.38629436F;
  if (degrees <= 2) {
    return degrees == 1 ? one : two;
  }
  // E. B. Wilson, M. M. Hilferty, Proc. Natl. Acad. Sci. 17, 1931.
  auto const n = static_cast<float>(degrees);
  float const root = 1.0F - 2.0F / (9.0F * n);
  return n * root * root * root;
}

} // namespace vorn::mv::sl
