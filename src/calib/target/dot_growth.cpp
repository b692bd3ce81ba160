// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_growth.hpp"

#include <algorithm>
#include <cmath>

namespace vorn::mv {
namespace {

/// Farthest that a dot may lie from where its neighbour expects it, in pitches. Perspective and distortion
/// change the step from one dot to the next by some hundredths.
constexpr double maxStepError = 0.22;

/// Share of a grid's dots that may have been claimed for two positions before the whole is discarded.
constexpr double maxConflictShare = 0.05;

/// The cross seen as a basis whose directions agree with `expected`, or `expected` where none does.
Basis alignedBasis(std::optional<GridCross> const& cross, Basis const& expected) {
  if (!cross) {
    return expected;
  }
  Basis aligned = expected;
  constexpr double maxDeviation = 0.35;
  bool hasX = false;
  bool hasY = false;
  for (cv::Point2d const& direction : {cross->first, -cross->first, cross->second, -cross->second}) {
    cv::Point2d const inGrid = expected.inverse(direction);
    if (cv::norm(inGrid - cv::Point2d(1, 0)) < maxDeviation) {
      aligned.x = direction;
      hasX = true;
    } else if (cv::norm(inGrid - cv::Point2d(0, 1)) < maxDeviation) {
      aligned.y = direction;
      hasY = true;
    }
  }
  return hasX && hasY ? aligned : expected;
}

} // namespace

std::vector<GridDot> Growth::run(int seed) {
  clear();
  GridCross const& cross = *crosses_[static_cast<std::size_t>(seed)];
  add(seed, {0, 0}, {cross.first, cross.second});
  for (std::size_t next = 0; next < dots_.size(); ++next) {
    for (cv::Point const& step : unitSteps) {
      extend(next, step);
    }
  }
  if (dots_.size() < leastGridSize) {
    return {};
  }
  std::vector<GridDot> sound;
  for (std::size_t i = 0; i < dots_.size(); ++i) {
    isUsed_[static_cast<std::size_t>(dots_[i].candidate)] = 1;
    if (!isDoubtful_[i]) {
      sound.push_back(dots_[i]);
    }
  }
  auto const doubtful = static_cast<double>(dots_.size() - sound.size());
  if (doubtful > maxConflictShare * static_cast<double>(dots_.size())) {
    sound.clear();
  }
  return sound;
}

void Growth::clear() {
  for (GridDot const& dot : dots_) {
    place_[static_cast<std::size_t>(dot.candidate)] = GridIndex::none;
    index_.set(dot.index, GridIndex::none);
  }
  dots_.clear();
  bases_.clear();
  isDoubtful_.clear();
}

void Growth::add(int candidate, cv::Point const& index, Basis const& basis) {
  place_[static_cast<std::size_t>(candidate)] = static_cast<int>(dots_.size());
  index_.set(index, static_cast<int>(dots_.size()));
  dots_.push_back({candidate, index});
  bases_.push_back(basis);
  isDoubtful_.push_back(0);
}

int Growth::nearest(cv::Point2d const& expected, Basis const& basis) const {
  double const radius = maxStepError * (cv::norm(basis.x) + cv::norm(basis.y));
  int best = GridIndex::none;
  double least = maxStepError;
  buckets_.visitNear(expected, radius, [&](int candidate) {
    double const distance =
        cv::norm(basis.inverse(candidates_[static_cast<std::size_t>(candidate)].centre - expected));
    if (distance < least || (distance == least && candidate < best)) {
      least = distance;
      best = candidate;
    }
  });
  return best;
}

void Growth::extend(std::size_t from, cv::Point const& step) {
  cv::Point const index = dots_[from].index + step;
  if (!GridIndex::contains(index)) {
    return;
  }
  Basis const basis = bases_[from];
  cv::Point2d const start = candidates_[static_cast<std::size_t>(dots_[from].candidate)].centre;
  int const found = nearest(start + basis * step, basis);
  if (found == GridIndex::none) {
    return;
  }
  int const place = place_[static_cast<std::size_t>(found)];
  int const occupant = index_.at(index);
  if (place == GridIndex::none && occupant == GridIndex::none) {
    if (isUsed_[static_cast<std::size_t>(found)] != 0) {
      return;
    }
    Basis expected = basis;
    cv::Point2d const way = candidates_[static_cast<std::size_t>(found)].centre - start;
    (step.x != 0 ? expected.x : expected.y) = way * static_cast<double>(step.x + step.y);
    Basis const own = alignedBasis(crosses_[static_cast<std::size_t>(found)], expected);
    if (own.isRegular()) {
      add(found, index, own);
    }
    return;
  }
  if (place != occupant) {
    for (int const doubtful : {place, occupant}) {
      if (doubtful != GridIndex::none) {
        isDoubtful_[static_cast<std::size_t>(doubtful)] = 1;
      }
    }
  }
}

} // namespace vorn::mv
