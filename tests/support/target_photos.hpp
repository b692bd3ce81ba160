// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <vorn/mv/calib/calib_pattern_detector.hpp>

#include "sim/target_photo.hpp"

namespace vorn::test {

/// A photograph of a 21 x 15 target, pitch 15 mm, in which a dot seen from the front has about the given
/// diameter; the target fills the image at a tilt of 0. Shading, blur and noise of sigma 2 as in practice.
sim::TargetPhoto targetPhoto(double dotDiameter, double tilt, double tiltDirection, double roll);

/// A detector for that target which takes dots of any size.
mv::CalibPatternDetector targetDetector();

/// How a detection compares with what was rendered.
struct DetectionErrors {
  int visible = 0; ///< dots wholly in view, with room around them for their blur
  int found = 0;   ///< of those
  int wrong = 0;   ///< key points at another dot than their index says
  double rms = 0;  ///< of one coordinate of the found dots, pixels
  double worst = 0;
};

std::ostream& operator<<(std::ostream& out, DetectionErrors const& errors);

DetectionErrors compare(mv::CalibPatternDetector::Result const& result, sim::TargetPhoto const& photo);

} // namespace vorn::test
