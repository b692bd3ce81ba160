// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/laser_line.hpp>

namespace vorn::mv {

/// What of a colour pixel counts in the search for a laser line: a sum of its channels. A green laser in a
/// lit room, say, is seen best in green less the mean of red and blue, in which white paper is black.
struct LaserColor {
  /// Weights of blue, green and red; all 0: the brightest of the three.
  std::array<double, 3> weights{};

  /// Whether the brightest channel counts.
  bool isBrightest() const { return weights == std::array<double, 3>{}; }

  /// @throws Exception for weights that are not finite, or of which none is above 0 but one below
  VORN_API void check() const;
};

/// Options with which overexposed stripes of up to 20 pixels are measured, too.
VORN_API LaserLineOptions overexposedToo();

/// Finds the sum of channels that shows a laser line best.
///
/// Tried are the brightest channel, each channel, the mean of two of them, and each of these less what is
/// left. That one is taken whose stripes join to the longest lines, and among nearly equal ones the one in
/// which the line stands highest above the noise. The brightest channel is kept unless another one is clearly
/// better.
/// @param images of one camera and lasers of one colour, such as the first, the middle and the last of a
/// scan; 8- or
///               16-bit unsigned or floating-point pixels. Of grey ones the brightest channel is what there
///               is
/// @param options how lines are looked for
/// @throws Exception for other images, and for options outside of their range
VORN_API LaserColor findLaserColor(std::vector<cv::Mat> const& images, LaserLineOptions const& options = {});

} // namespace vorn::mv
