// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace vorn::mv::sl {

/// The error that light which is not linear makes in the phase of N even steps: harmonics N - 1 and N + 1 of
/// the brightness look like the first one, turned N times as fast (H. Guo, H. He, M. Chen, Applied Optics 43,
/// 2004). It is a series in the phase, of N and 2 N times it.
struct StepError {
  static constexpr std::size_t terms = 4;

  int steps = 0;                       ///< 0: none is taken off
  std::array<double, terms> factors{}; ///< of sin N, cos N, sin 2N, cos 2N; turns

  /// The terms at a phase in turns.
  static std::array<double, terms> termsAt(double turns, int steps);
  /// The error at a phase with these terms, turns.
  double sum(std::array<double, terms> const& values) const;
  /// The error at a phase as it is measured, turns.
  double at(double turns) const;
  /// The largest error, turns.
  double largest() const;
};

/// One pixel's phases of all fringes of an axis, whose orders are known.
struct AgreementSample {
  std::vector<double> turns;
  std::vector<double> coordinates; ///< that follow from them, projector pixels
};

/// The errors of fringes from what their coordinates disagree about: each by itself is unknown, but the
/// place that a pixel sees is the same for all of them.
/// @param periods projector pixels
/// @param steps   of each fringe; 0 for those without an error
/// @return one for each fringe; without factors where there are too few samples
std::vector<StepError> stepErrors(std::vector<double> const& periods, std::vector<int> const& steps,
                                  std::vector<AgreementSample> const& samples);

} // namespace vorn::mv::sl
