// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core/types.hpp>

#include "sl/decode/scan_maps.hpp"
#include "sl/decode/segments.hpp"

namespace vorn::mv::sl {

/// The wrapped phase in [0, 2 pi) that a pixel itself shows, or a negative number where it shows none.
using OwnPhase = std::function<float(cv::Point pixel)>;

/// Takes the absolute phase of a pixel that is filled, which must not change the maps.
using FillPixel = std::function<void(cv::Point pixel, float absolutePhase)>;

/// Closes holes in a map of absolute phases that one smooth surface surrounds.
///
/// A hole is a set of 8-connected missing pixels that does not touch the image's border; it is closed when it
/// fits into a square of 2 `maxRadius` + 1 pixels and a quadratic surface fits what was measured around it. A
/// pixel in it that shows a phase of its own keeps that one, if it agrees with the surface, and stays missing
/// if not. Holes are closed in parallel: both functions are called from several threads.
/// @param maps    whose known pixels were measured
/// @param missing the runs of all others, from `findSegments`
/// @return the number of pixels closed
int fillHoles(ScanMaps const& maps, std::vector<Run> const& missing, int maxRadius, OwnPhase const& own,
              FillPixel const& fill, Progress const& progress = {});

} // namespace vorn::mv::sl
