// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "sl/decode/grey_stack.hpp"

namespace vorn::mv {

/// Which pixels are lit and not too bright, in the levels of the images.
struct LitLimits {
  double amplitude; ///< least of a fringe
  double mean;      ///< most of the four phase images
};

/// By how much the light of one of the four phase images differs from that of the others, beyond what the
/// decoder corrects.
struct StepLevels {
  /// What it does to the phase of the pixels that suffer most, radians.
  double phaseError = 0.0;
  /// The image whose mean is farthest from those of the others.
  std::size_t image = 0;
  /// Its mean there, in the levels of the images.
  double level = 0.0;
  /// The mean of the other images there.
  double usual = 0.0;

  /// From which `phaseError` on the images are not to be trusted: noise leaves a tenth of it.
  static constexpr double mostPhaseError = 0.05;
  /// How the image differs, and what that may be: to follow its name.
  std::string text() const;
};

/// The steps of a fringe add up, P0 + P2 = P1 + P3, at any phase. So the mean of P0 - P1 + P2 - P3 over the
/// lit pixels of like brightness is nought whatever surface, noise and a harmonic of the light do; what it is
/// else, one image has too much or too little, whose own mean tells which: the pixels have all phases.
/// @param stack whose first four images are those of the phase
StepLevels stepLevels(sl::GreyStack const& stack, LitLimits const& limits);

} // namespace vorn::mv
