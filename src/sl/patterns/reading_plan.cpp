// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/reading_plan.hpp"

#include <algorithm>
#include <map>
#include <utility>

namespace vorn::mv::sl {

namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

std::size_t find(PatternSet const& set, PatternRole role, double exposure) {
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    if (set.images[i].role == role && set.images[i].exposure == exposure) {
      return i;
    }
  }
  return none;
}

} // namespace

void ReadingPlan::put(std::size_t when, ReadingStep const& step) {
  steps[when].push_back(step);
  lastUse[step.image] = std::max(lastUse[step.image], when);
  if (step.kind == ReadingStep::Subtract || step.kind == ReadingStep::Level) {
    lastUse[step.other] = std::max(lastUse[step.other], when);
  }
}

/// What the bits of an exposure are compared with, and `ready`, the image from which on that is known.
std::size_t ReadingPlan::levelOf(PatternSet const& set, PatternAxis axis, double exposure,
                                 std::size_t& ready) {
  std::size_t const reference = find(set, PatternRole::Reference, exposure);
  std::size_t const white = find(set, PatternRole::White, exposure);
  std::size_t const black = find(set, PatternRole::Black, exposure);
  if (reference != none) {
    ready = reference;
    levels.push_back({LevelPlan::Reference, none, 1.0F});
    put(ready, {ReadingStep::Level, levels.size() - 1, reference, reference});
  } else if (white != none && black != none) {
    ready = std::max(white, black);
    levels.push_back({LevelPlan::WhiteAndBlack, none, 1.0F});
    put(ready, {ReadingStep::Level, levels.size() - 1, white, black});
  } else {
    // The mean of fringes of the same axis, or else of any.
    auto found = std::find_if(fringes.begin(), fringes.end(),
                              [&](FringeDesign const& f) { return f.fringe.axis == axis; });
    found = found == fringes.end() ? fringes.begin() : found;
    double longest = 0.0;
    for (PatternImage const& image : set.images) {
      longest = std::max(longest, image.exposure);
    }
    ready = found->fringe.images.back();
    levels.push_back({LevelPlan::FringeMean, static_cast<std::size_t>(found - fringes.begin()),
                      static_cast<float>(exposure / longest)});
  }
  return levels.size() - 1;
}

void ReadingPlan::addBits(PatternSet const& set, PatternAxis axis) {
  std::map<double, std::vector<std::size_t>> byExposure;
  for (std::size_t const i : bitsAlong(set, axis)) {
    byExposure[set.images[i].exposure].push_back(i);
  }
  for (auto const& [exposure, bits] : byExposure) {
    CodePlan code{axis, exposure, none, none};
    std::map<std::pair<int, bool>, std::size_t> places;
    for (std::size_t const i : bits) {
      places[{set.images[i].bit, set.images[i].isInverse}] = i;
    }
    bool const hasInverses =
        places.size() > 1 && places.begin()->first.first == std::next(places.begin())->first.first;
    std::size_t ready = 0;
    if (!hasInverses) {
      code.level = levelOf(set, axis, exposure, ready);
    }
    for (std::size_t const i : bits) {
      PatternImage const& image = set.images[i];
      if (hasInverses && !image.isInverse) {
        std::size_t const inverse = places.at({image.bit, true});
        put(std::max(i, inverse), {ReadingStep::Subtract, codes.size(), i, inverse});
      } else if (!hasInverses) {
        put(std::max(i, ready), {ReadingStep::Compare, codes.size(), i, i});
      }
    }
    codes.push_back(code);
  }
}

ReadingPlan::ReadingPlan(PatternSet const& set) : steps(set.images.size()), lastUse(set.images.size()) {
  for (PatternAxis const axis : {PatternAxis::Column, PatternAxis::Row}) {
    for (Fringe const& fringe : fringesAlong(set, axis)) {
      std::size_t const number = fringes.size();
      fringes.emplace_back(set, fringe);
      for (std::size_t k = 0; k < fringe.images.size(); ++k) {
        put(fringe.images[k], {ReadingStep::Add, number, fringe.images[k], k});
      }
      std::size_t const last = *std::max_element(fringe.images.begin(), fringe.images.end());
      put(last, {ReadingStep::Solve, number, last, 0});
    }
  }
  // After the fringes, whose means they may be compared with.
  addBits(set, PatternAxis::Column);
  addBits(set, PatternAxis::Row);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    for (ReadingStep const& step : steps[i]) {
      bool const isOfCode = step.kind == ReadingStep::Compare || step.kind == ReadingStep::Subtract;
      bool const isOfFringe = step.kind == ReadingStep::Solve;
      if (isOfCode && codes[step.target].firstBit == none) {
        codes[step.target].firstBit = step.image;
      }
      if (isOfCode || isOfFringe) {
        PatternAxis const axis = isOfCode ? codes[step.target].axis : fringes[step.target].fringe.axis;
        lastOf[axis == PatternAxis::Column ? 0 : 1] = i;
      }
    }
  }
}

} // namespace vorn::mv::sl
