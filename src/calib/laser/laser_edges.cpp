// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/laser/laser_edges.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include <opencv2/core/cvdef.h>

#include "core/median.hpp"

namespace vorn::mv {

namespace {

/// Stripes of neighbouring columns belong to one line when they lie no further apart, in pixels. A line whose
/// places lie s apart is sqrt(1 + s^2) times as wide along the columns as across, so for one of a pixel
/// across the width bounds s.
double mostStep(ProfilePeak const& a, ProfilePeak const& b) {
  constexpr double least = 2;
  return std::max({least, a.width, b.width});
}

/// From so many pairs of neighbours on, their differences tell the noise.
constexpr std::size_t leastPairs = 20;

/// What is further from its expectation than so many standard deviations is no noise.
constexpr double mostDeviations = 4.5;

/// Of a standard normal variable, the lower quartile of its absolute value and the median of its square.
constexpr double normalQuartile = 0.3186;
constexpr double normalMedianSquare = 0.4549;

/// The variance of rounding to whole grey levels.
constexpr double roundingVariance = 1.0 / 12;

/// Indices of the samples of one line, each beside the next.
using Chain = std::vector<std::size_t>;

/// The variance of a value's noise, which grows with the light.
struct NoiseModel {
  double constant = 0;
  double perLevel = 0;

  double variance(double contrast) const {
    return std::max(roundingVariance, constant + perLevel * contrast);
  }
  /// The part of the rounding errors that neighbours have in common: without noise, all of it. (Gaussian
  /// dither, Schuchman 1964.)
  double commonVariance(double contrast) const {
    return roundingVariance * std::exp(-2 * CV_PI * CV_PI * (constant + perLevel * contrast));
  }
};

/// From the differences between neighbours, so that what changes slowly along the line does not count.
NoiseModel noiseOf(std::vector<LaserSample> const& samples, std::vector<Chain> const& chains,
                   std::vector<double> const& values) {
  std::vector<std::pair<double, double>> pairs; // contrast, and the variance that the difference stands for
  for (Chain const& chain : chains) {
    for (std::size_t k = 1; k < chain.size(); ++k) {
      double const difference = values[chain[k]] - values[chain[k - 1]];
      pairs.emplace_back(samples[chain[k]].peak.contrast, difference * difference / 2 / normalMedianSquare);
    }
  }
  auto const half = pairs.begin() + static_cast<std::ptrdiff_t>(pairs.size() / 2);
  std::nth_element(pairs.begin(), half, pairs.end());
  auto const medians = [](auto begin, auto end) {
    std::vector<double> contrasts;
    std::vector<double> variances;
    for (auto pair = begin; pair != end; ++pair) {
      contrasts.push_back(pair->first);
      variances.push_back(pair->second);
    }
    return std::pair(medianOf(std::move(contrasts)), medianOf(std::move(variances)));
  };
  auto const [darkContrast, darkVariance] = medians(pairs.begin(), half);
  auto const [brightContrast, brightVariance] = medians(half, pairs.end());
  NoiseModel model;
  // Even light tells nothing about the dependence.
  constexpr double leastRange = 1.2;
  if (brightContrast > leastRange * darkContrast) {
    model.perLevel = std::max(0.0, (brightVariance - darkVariance) / (brightContrast - darkContrast));
  }
  model.constant = std::max(0.0, (darkVariance + brightVariance) / 2 -
                                     model.perLevel * (darkContrast + brightContrast) / 2);
  return model;
}

double lowerQuartile(std::vector<double> values) {
  return rankedAmong(values, values.size() / 4);
}

/// Flags the stripes whose odd part, or its mean over neighbours, is too large for noise.
void flagAsymmetry(std::vector<LaserSample> const& samples, std::vector<Chain> const& chains,
                   std::size_t part, std::vector<bool>& flags) {
  std::vector<double> odd;
  odd.reserve(samples.size());
  for (LaserSample const& sample : samples) {
    odd.push_back(sample.peak.odd[part] / sample.peak.contrast);
  }
  double const own = medianOf(odd);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    odd[i] = (odd[i] - own) * samples[i].peak.contrast;
  }
  NoiseModel const noise = noiseOf(samples, chains, odd);
  std::vector<double> deviations(samples.size());
  for (std::size_t const reach : {0U, 2U, 10U}) {
    for (Chain const& chain : chains) {
      for (std::size_t k = 0; k < chain.size(); ++k) {
        std::size_t const first = k - std::min(k, reach);
        std::size_t const end = std::min(k + reach + 1, chain.size());
        double sum = 0;
        double variance = 0;
        for (std::size_t j = first; j < end; ++j) {
          sum += odd[chain[j]];
          variance += noise.variance(samples[chain[j]].peak.contrast);
        }
        auto const count = static_cast<double>(end - first);
        variance += count * (count - 1) * noise.commonVariance(samples[chain[k]].peak.contrast);
        deviations[chain[k]] = std::abs(sum) / std::sqrt(variance);
      }
    }
    // A laser whose asymmetry wanders along the line exceeds the noise everywhere; edges that run along the
    // line may take more than half of it.
    double const common = std::max(1.0, lowerQuartile(deviations) / normalQuartile);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      flags[i] = flags[i] || deviations[i] > mostDeviations * common;
    }
  }
}

/// Flags the stripes whose height changes too fast along the line.
void flagChangeOfLight(std::vector<LaserSample> const& samples, std::vector<Chain> const& chains,
                       std::vector<bool>& flags) {
  constexpr std::size_t reach = 3;
  constexpr std::size_t leastCount = 3;
  /// A change of the logarithm of the height, over the stripe's width, that moves it by a twentieth of that.
  constexpr double mostChangePerWidth = 0.05;
  std::vector<double> heights;
  heights.reserve(samples.size());
  for (LaserSample const& sample : samples) {
    heights.push_back(sample.peak.contrast);
  }
  NoiseModel const noise = noiseOf(samples, chains, heights);
  for (Chain const& chain : chains) {
    for (std::size_t k = 0; k < chain.size(); ++k) {
      std::size_t const first = k - std::min(k, reach);
      std::size_t const end = std::min(k + reach + 1, chain.size());
      if (end - first < leastCount) {
        continue;
      }
      double const middle = static_cast<double>(first + end - 1) / 2;
      double moment = 0;
      double squares = 0;
      for (std::size_t j = first; j < end; ++j) {
        double const x = static_cast<double>(j) - middle;
        moment += x * std::log(heights[chain[j]]);
        squares += x * x;
      }
      ProfilePeak const& peak = samples[chain[k]].peak;
      double const deviation =
          std::sqrt(noise.variance(peak.contrast)) / (peak.contrast * std::sqrt(squares));
      // By 1 / cos of its angle, the line is wider along the column than across, and a column's step along it
      // is longer than a pixel.
      double const slope = (samples[chain[end - 1]].peak.place - samples[chain[first]].peak.place) /
                           static_cast<double>(end - 1 - first);
      double const most =
          std::max(mostChangePerWidth * (1 + slope * slope) / peak.width, mostDeviations * deviation);
      flags[chain[k]] = flags[chain[k]] || std::abs(moment / squares) > most;
    }
  }
}

/// Flags also what lies between flagged stripes nearby: along an edge the odd parts change their signs.
void flagGaps(std::vector<Chain> const& chains, std::vector<bool>& flags) {
  constexpr std::size_t longestGap = 10;
  for (Chain const& chain : chains) {
    std::size_t last = chain.size(); // none yet
    for (std::size_t k = 0; k < chain.size(); ++k) {
      if (flags[chain[k]]) {
        for (std::size_t j = last + 1; j < k && k - last <= longestGap; ++j) {
          flags[chain[j]] = true;
        }
        last = k;
      }
    }
  }
}

} // namespace

std::vector<Chain> chainsOf(std::vector<LaserSample> const& samples) {
  std::vector<Chain> chains;
  std::vector<std::size_t> chainOf(samples.size());
  std::size_t before = 0; // the first sample of the column before, not taken up yet
  for (std::size_t i = 0; i < samples.size(); ++i) {
    int const line = samples[i].line;
    ProfilePeak const& peak = samples[i].peak;
    auto const isBefore = [&](LaserSample const& other) {
      return other.line < line - 1 ||
             (other.line == line - 1 && other.peak.place < peak.place - mostStep(peak, other.peak));
    };
    while (before < i && isBefore(samples[before])) {
      ++before;
    }
    if (before < i && samples[before].line == line - 1 &&
        samples[before].peak.place <= peak.place + mostStep(peak, samples[before].peak)) {
      chainOf[i] = chainOf[before++];
    } else {
      chainOf[i] = chains.size();
      chains.emplace_back();
    }
    chains[chainOf[i]].push_back(i);
  }
  return chains;
}

std::vector<bool> movedByEdges(std::vector<LaserSample> const& samples) {
  std::vector<bool> flags(samples.size(), false);
  std::vector<Chain> const chains = chainsOf(samples);
  if (samples.size() < chains.size() + leastPairs) {
    return flags;
  }
  for (std::size_t part = 0; part < samples[0].peak.odd.size(); ++part) {
    flagAsymmetry(samples, chains, part, flags);
  }
  flagChangeOfLight(samples, chains, flags);
  flagGaps(chains, flags);
  return flags;
}

} // namespace vorn::mv
