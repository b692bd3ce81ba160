// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/calib/laser_line.hpp>

#include "calib/laser/laser_edges.hpp"
#include "calib/laser/laser_grey.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// The highest stripes of every column (or row), in the order of the lines and of their places. A line on
/// which a stripe is overexposed that cannot be measured has none: the next best is not its.
std::vector<LaserSample> findLaserSamples(LaserGrey const& image, LaserLineOptions const& options,
                                          Progress const& progress);

/// One laser line in an image.
struct FoundLine {
  std::vector<LaserPeak> peaks;
  /// Why there are none though there are stripes; else empty.
  std::string reason;
};

/// Finds the one line that an image shows, column by column (or row by row).
///
/// Of each column the best stripe counts. Where it is none of a piece of line of some length, the column is
/// left out. Where two stripes run side by side, the line is the one that is the brighter one all along;
/// where they are too alike for that, or change places, there is none.
/// @param options of which `maxPeaks` does not count
FoundLine findLaserLine(LaserGrey const& image, LaserLineOptions const& options, Progress const& progress);

/// As they are given out.
LaserPeak peakOf(LaserSample const& sample, LaserLineOptions::Direction direction);

/// Takes away the samples that an edge of the surface's brightness has moved.
void dropMovedSamples(std::vector<LaserSample>& samples);

} // namespace vorn::mv
