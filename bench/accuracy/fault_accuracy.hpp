// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <vorn/mv/calib/diagnosis.hpp>

#include "fault_rigs.hpp"

/// Whether calibrations name what goes wrong with their views, and what error they are left with.
namespace vorn::bench {

/// A fault of the target views, what it has to be called, and the error that shall be left, micrometres
/// (rigid); 0 for none: the calibration is refused, or says only that more views are wanted.
struct FaultCase {
  std::string fault; ///< in the words of `sim::faultOf`; empty: none
  std::optional<mv::FindingCause> cause;
  double goal = 0;
};

/// What became of views with a fault.
struct FaultFigures {
  std::vector<mv::Finding> findings;
  std::vector<std::string> leftOut; ///< views with the reason
  std::string refusal;              ///< why there is no calibration or no adjustment; empty when there is
  VolumeErrors errors;              ///< of the calibration, or where refused of one made all the same
  double predicted = 0;             ///< rigid, micrometres

  bool names(mv::FindingCause cause) const;
};

/// All kinds of faults, for a rig of at least 6 views.
std::vector<FaultCase> faultCases();

/// Calibrates a rig with each fault and prints a table of what is said and what error is left. Its views are
/// rendered.
/// @param only faults with this in their words
/// @return whether every fault is named and nothing found in clean views
bool printFaultTable(CalibratedRig const& rig, std::string const& only);

/// What was said of many rigs with one fault.
struct FreshTally {
  std::string fault;
  bool isRendered = false;
  int rigs = 0;
  int named = 0;
  int refusedOtherwise = 0; ///< without the cause
  int others = 0;           ///< rigs of which another cause was named too
};

/// Tries each fault on rigs by chance: those that points show on drawn points of eight views, those of images
/// on rendered views at half resolution.
/// @param first the seed of the first rig
/// @param only faults with this in their words
std::vector<FreshTally> tallyDrawn(int rigs, std::uint64_t first, std::string const& only = "");
std::vector<FreshTally> tallyRendered(int rigs, std::uint64_t first, std::string const& only = "");
void printTallies(std::vector<FreshTally> const& tallies);

} // namespace vorn::bench
