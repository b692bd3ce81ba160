// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "sl/patterns/fringe_misfit.hpp"
#include "sl/patterns/reading_plan.hpp"

namespace vorn::mv::sl {

/// Images that show the mean brightness of all patterns together: the steps of a fringe, a bit and its
/// inverse, white and black, a reference.
struct LevelGroup {
  std::vector<std::size_t> images;
  FringeDesign const* fringe; ///< null for others
  double gain;                ///< its exposure in parts of the longest; of others than fringes
};

std::vector<LevelGroup> levelGroups(PatternSet const& set, ReadingPlan const& plan);

/// The mean levels of each group at the kept places, and how well one explains another.
class Levels {
public:
  Levels(std::vector<LevelGroup> const& groups, KeptSamples const& samples, Assignment const& assignment);

  /// What is left of a group's levels, with those of another group, its amplitude, and something constant
  /// taken off, in parts of that amplitude: by the group that explains them second best, as two that have
  /// exchanged an image explain each other. NaN when there are too few
  /// places, or no other group.
  double misfit(std::size_t group) const;

private:
  double misfit(std::size_t group, std::size_t by) const;

  struct Pixel {
    double level, amplitude;
  };
  std::vector<std::vector<Pixel>> levels_; ///< of each group
};

} // namespace vorn::mv::sl
