// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/agreement_check.hpp"

#include <cmath>
#include <numeric>
#include <string>

#include <vorn/core/text.hpp>

#include "core/pi.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

namespace {

constexpr std::size_t fewestPixels = 100;
/// Share of pixels with an order below which something is sought, and of the others, that it must give one.
constexpr double enough = 0.9;
constexpr double leastGain = 0.5;
constexpr std::size_t mostSteps = 12; // above that one step is little

double shareOf(FringeSamples const& samples, int resolution) {
  std::vector<int> const isWanted(samples.turns[0].size(), 1);
  FoundOrders found;
  searchOrders(samples, resolution, isWanted, found);
  double const clear = std::accumulate(found.isClear.begin(), found.isClear.end(), 0.0);
  return clear / static_cast<double>(isWanted.size());
}

/// What another order of the steps makes of a fringe's phase.
struct Reordered {
  std::size_t fringe = 0;
  std::size_t first = 0; ///< step that the first one is
  bool isMirrored = false;

  void apply(FringeDesign const& design, std::vector<float>& turns) const {
    double const steps = static_cast<double>(first) / static_cast<double>(design.fringe.images.size());
    double const offset = design.firstAngle / (2 * CV_PI);
    for (float& turn : turns) {
      double const own = static_cast<double>(turn);
      double const made = isMirrored ? 0.5 - 2.0 * offset - steps - own : own + steps;
      turn = static_cast<float>(made - std::floor(made));
    }
  }
};

} // namespace

std::vector<PatternDoubt> checkAgreement(FringeSamples const& samples,
                                         std::vector<FringeDesign const*> const& designs, int resolution) {
  std::vector<PatternDoubt> doubts;
  if (samples.turns[0].size() < fewestPixels) {
    return doubts;
  }
  double const own = shareOf(samples, resolution);
  if (own >= enough) {
    return doubts;
  }
  double best = own + leastGain * (1.0 - own);
  Reordered found;
  bool isFound = false;
  FringeSamples tried = samples;
  for (std::size_t i = 0; i < designs.size(); ++i) {
    std::size_t const steps = designs[i]->fringe.images.size();
    bool const isEven = designs[i]->source != NoiseSource::Squares && steps <= mostSteps;
    for (std::size_t k = isEven ? 1 : 2 * steps; k < 2 * steps; ++k) {
      Reordered const reordered{i, k % steps, k >= steps};
      reordered.apply(*designs[i], tried.turns[i]);
      double const share = shareOf(tried, resolution);
      if (share > best) {
        best = share;
        found = reordered;
        isFound = true;
      }
      tried.turns[i] = samples.turns[i];
    }
  }
  if (isFound) {
    Fringe const& fringe = designs[found.fringe]->fringe;
    auto const percent = [](double share) { return toString(std::round(1000.0 * share) / 10.0) + " %"; };
    doubts.push_back({found.isMirrored ? PatternFault::Mirrored : PatternFault::Shifted, fringe.axis,
                      fringe.period, fringe.images, own, enough,
                      "the fringe " + ofFringe(fringe) + " gives " + percent(own) +
                          " of the pixels an order with the others, and " + percent(best) +
                          (found.isMirrored ? " if it ran the other way: two of its steps look exchanged"
                                            : " if it began with another step")});
  }
  return doubts;
}

} // namespace vorn::mv::sl
