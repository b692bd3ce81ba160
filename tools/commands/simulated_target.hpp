// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/calib/target_description.hpp>

#include <sim/pose.hpp>
#include <sim/target.hpp>

namespace vorn::tools {

/// A target in rendered views, and the description by which they are calibrated.
struct SimulatedTarget {
  sim::Target target;
  mv::TargetDescription description;

  /// Where its views show it, all about the same field whatever the kind.
  std::vector<sim::Pose> poses() const;
};

/// The words for kinds, the first of which is the usual one.
std::vector<std::string> const& simulatedKinds();

/// The target of a kind: dots with three corner marks, staggered dots, a chessboard or a ChArUco board, all
/// of about one size.
/// @param kind one of `simulatedKinds`
/// @throws Exception as `prepareFor`
SimulatedTarget simulatedTarget(std::string const& kind);

} // namespace vorn::tools
