// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "sl/patterns/fringe_sums.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

/// Something that is done once an image is there.
struct ReadingStep {
  enum Kind {
    Add,      ///< a step to the sums of a fringe
    Solve,    ///< the sums of a fringe
    Level,    ///< what bits of one exposure are compared with, from white and black, or a reference
    Compare,  ///< a bit with that level
    Subtract, ///< a bit and its inverse
  };
  Kind kind;
  std::size_t target; ///< the fringe, the level, or the code
  std::size_t image;
  std::size_t other; ///< the inverse, or black; of `Add` the place among the fringe's images
};

/// The bits of one axis at one exposure.
struct CodePlan {
  PatternAxis axis;
  double exposure;
  std::size_t level;    ///< what they are compared with, if anything
  std::size_t firstBit; ///< the image of the bit that is read first
};

/// What bits are compared with.
struct LevelPlan {
  enum Source { WhiteAndBlack, Reference, FringeMean };
  Source source;
  std::size_t fringe; ///< of `FringeMean`
  float gain;         ///< of the mean at the longest exposure
};

/// What is to be done with each image of a set, whose order is known beforehand.
struct ReadingPlan {
  explicit ReadingPlan(PatternSet const& set);

  std::vector<FringeDesign> fringes; ///< those of columns first
  std::vector<CodePlan> codes;       ///< those of columns first
  std::vector<LevelPlan> levels;
  std::vector<std::vector<ReadingStep>> steps; ///< of each image, in order
  std::vector<std::size_t> lastUse;    ///< of each image: the image whose steps are the last to read it
  std::array<std::size_t, 2> lastOf{}; ///< of columns and rows: the last image that tells of them

private:
  void addBits(PatternSet const& set, PatternAxis axis);
  std::size_t levelOf(PatternSet const& set, PatternAxis axis, double exposure, std::size_t& ready);
  void put(std::size_t when, ReadingStep const& step);
};

} // namespace vorn::mv::sl
