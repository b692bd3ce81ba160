// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/laser/laser_search.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

/// Stripes in fewer neighbouring columns than this are no laser line, but specks, screws and noise.
constexpr std::size_t leastRun = 5;

using Chain = std::vector<std::size_t>;

/// The length of the piece of line that each sample is in.
std::vector<std::size_t> runsOf(std::vector<LaserSample> const& samples) {
  std::vector<std::size_t> runs(samples.size());
  for (Chain const& chain : chainsOf(samples)) {
    for (std::size_t const i : chain) {
      runs[i] = chain.size();
    }
  }
  return runs;
}

template <class IsKept>
void keepOnly(std::vector<LaserSample>& samples, IsKept const& isKept) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (isKept(i)) {
      samples[kept++] = samples[i];
    }
  }
  samples.resize(kept);
}

/// Of two samples of a column, the higher one.
void keepHigher(std::vector<LaserSample>& samples) {
  std::vector<LaserSample> higher;
  for (LaserSample const& sample : samples) {
    if (higher.empty() || higher.back().line != sample.line) {
      higher.push_back(sample);
    } else if (sample.peak.contrast > higher.back().peak.contrast) {
      higher.back() = sample;
    }
  }
  samples = std::move(higher);
}

/// What two stripes in one column tell of each other.
struct Sides {
  std::size_t lines = 0;       ///< columns with any stripe
  std::size_t both = 0;        ///< columns with two stripes of long pieces of line
  std::size_t firstHigher = 0; ///< of them those in which the first one is clearly the higher
  std::size_t secondHigher = 0;
};

Sides sidesOf(std::vector<LaserSample> const& samples) {
  constexpr std::size_t longRun = 20;
  constexpr double clearly = 1.3;
  std::vector<std::size_t> const runs = runsOf(samples);
  Sides sides;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    sides.lines += i == 0 || samples[i].line != samples[i - 1].line ? 1 : 0;
    bool const isPair = i + 1 < samples.size() && samples[i].line == samples[i + 1].line;
    if (isPair && runs[i] >= longRun && runs[i + 1] >= longRun) {
      double const first = samples[i].peak.contrast;
      double const second = samples[i + 1].peak.contrast;
      ++sides.both;
      sides.firstHigher += first > clearly * second ? 1 : 0;
      sides.secondHigher += second > clearly * first ? 1 : 0;
    }
  }
  return sides;
}

/// Whether so many columns have two stripes of which neither is the line all along.
bool isAmbiguous(Sides const& sides) {
  constexpr double share = 0.2; // a line that steps or doubles back is in some columns twice
  constexpr std::size_t least = 40;
  constexpr double mostly = 0.95;
  bool const isMany =
      sides.both >= least && static_cast<double>(sides.both) > share * static_cast<double>(sides.lines);
  auto const most = static_cast<double>(std::max(sides.firstHigher, sides.secondHigher));
  return isMany && most < mostly * static_cast<double>(sides.both);
}

} // namespace

LaserPeak peakOf(LaserSample const& sample, LaserLineOptions::Direction direction) {
  auto const along = static_cast<float>(sample.line);
  ProfilePeak const& peak = sample.peak;
  auto const place = static_cast<float>(peak.place);
  bool const perColumn = direction == LaserLineOptions::Direction::PerColumn;
  return {perColumn ? cv::Point2f(along, place) : cv::Point2f(place, along),
          static_cast<float>(peak.contrast), static_cast<float>(peak.width), static_cast<float>(peak.sigma),
          peak.isOverexposed};
}

void dropMovedSamples(std::vector<LaserSample>& samples) {
  // Of an overexposed stripe neither shape nor height is known.
  std::vector<LaserSample> shaped;
  std::copy_if(samples.begin(), samples.end(), std::back_inserter(shaped),
               [](LaserSample const& sample) { return !sample.peak.isOverexposed; });
  std::vector<bool> const isMoved = movedByEdges(shaped);
  std::size_t next = 0;
  keepOnly(samples, [&](std::size_t i) { return samples[i].peak.isOverexposed || !isMoved[next++]; });
}

FoundLine findLaserLine(LaserGrey const& image, LaserLineOptions const& given, Progress const& progress) {
  LaserLineOptions options = given;
  options.maxPeaks = 2;
  std::vector<LaserSample> samples = findLaserSamples(image, options, progress);
  FoundLine found;
  if (isAmbiguous(sidesOf(samples))) {
    found.reason = "two stripes run side by side, and neither is the brighter one all along";
    return found;
  }
  keepHigher(samples);
  std::vector<std::size_t> const runs = runsOf(samples);
  keepOnly(samples, [&](std::size_t i) { return runs[i] >= leastRun; });
  if (options.dropMoved) {
    dropMovedSamples(samples);
  }
  for (LaserSample const& sample : samples) {
    found.peaks.push_back(peakOf(sample, options.direction));
  }
  return found;
}

} // namespace vorn::mv
