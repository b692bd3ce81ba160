// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/simulated_target.hpp"

#include <vorn/mv/calib/target_finder.hpp>

#include <sim/demo.hpp>

#include "tools/files/target_file.hpp"

namespace vorn::tools {

namespace {

SimulatedTarget markedDots() {
  SimulatedTarget result{sim::demoTarget(), {}};
  sim::DotGrid const& grid = result.target.grid;
  mv::TargetDescription& description = result.description;
  description.pitch = grid.pitch;
  description.first = {grid.columns.start, grid.rows.start};
  description.size = {grid.columns.size(), grid.rows.size()};
  description.marks = {{0, 0}, {1, 0}, {0, 1}};
  description.polarity = mv::TargetPolarity::Bright;
  return result;
}

SimulatedTarget staggeredDots() {
  SimulatedTarget result{sim::demoStaggeredTarget(), {}};
  sim::DotGrid const& grid = result.target.grid;
  mv::TargetDescription& description = result.description;
  description.kind = mv::TargetKind::StaggeredCircles;
  description.pitch = grid.pitch;
  description.size = {grid.columns.size() / 2, grid.rows.size()};
  description.polarity = mv::TargetPolarity::Bright;
  return result;
}

SimulatedTarget chessboard() {
  SimulatedTarget result{sim::demoChessboard(), {}};
  sim::DotGrid const& grid = result.target.grid;
  mv::TargetDescription& description = result.description;
  description.kind = mv::TargetKind::Chessboard;
  description.pitch = grid.pitch;
  description.size = {grid.columns.size(), grid.rows.size()};
  return result;
}

SimulatedTarget charucoBoard() {
  SimulatedTarget result;
  mv::TargetDescription& description = result.description;
  description.kind = mv::TargetKind::Charuco;
  description.pitch = 24; // markers that a coarse camera reads too
  description.size = {12, 8};
  description.markerSize = 18;
  description.dictionary = "DICT_5X5_100";
  prepareFor(description);
  result.target = sim::printedBoard(description.size, description.pitch,
                                    mv::targetFinder(description.kind)->darkParts(description));
  return result;
}

} // namespace

std::vector<sim::Pose> SimulatedTarget::poses() const {
  return target.grid.hasMarkers ? sim::demoTargetPoses() : sim::demoTargetPoses(target);
}

std::vector<std::string> const& simulatedKinds() {
  static std::vector<std::string> const kinds = {"circles", "staggered", "chessboard", "charuco"};
  return kinds;
}

SimulatedTarget simulatedTarget(std::string const& kind) {
  if (kind == "staggered") {
    return staggeredDots();
  }
  if (kind == "chessboard") {
    return chessboard();
  }
  return kind == "charuco" ? charucoBoard() : markedDots();
}

} // namespace vorn::tools
