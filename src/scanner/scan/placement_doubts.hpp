// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/scanner/scan.hpp>

namespace vorn::mv {

class Sl3dScanner;

/// From the depth of a point on, half a projector pixel more or less puts it anywhere up to infinity: nothing
/// is measured there.
/// @return mm in the camera's frame
double farthestDepth(Sl3dScanner const& scanner);

/// That a scan's coordinates run against the calibration, or most of its points are nowhere: mirrored, turned
/// or exchanged images, or another calibration. Of two devices that see one side of a surface, neither sees
/// its points in another order along a plane through both.
/// @param result with its map and counts
std::vector<PatternDoubt> placementDoubts(Sl3dScanner const& scanner, ScanResult const& result);

/// What may be the cause that a scan has no point.
/// @param images   as they were given
/// @param white    level at which they are full
/// @param result with its counts
PatternDoubt emptyDoubt(std::vector<cv::Mat> const& images, double white, ScanResult const& result,
                        PatternAxis axis);

} // namespace vorn::mv
