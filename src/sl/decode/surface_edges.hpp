// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include "core/progress.hpp"
#include "sl/decode/calm_chunks.hpp"
#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Closes the known pixels that do not see one surface alone, and writes the coordinates of the others.
///
/// A pixel at the edge of a surface mixes the light of two, or of one and a shadow, and may show either
/// coordinate. It is told by a jump of the absolute phase beside it, or by a loss of amplitude where the
/// known phases end.
/// @param phaseImages P0 to P3
/// @param calm        pieces of rows known to be calm, whose coordinates are written
/// @param coordinates takes projector pixels, `noPhase` where there is none
void closeEdges(std::vector<cv::Mat> const& phaseImages, ScanDecodingSettings const& settings,
                CalmChunks const& calm, ScanMaps& maps, cv::Mat_<float>& coordinates,
                Progress const& progress);

/// What pixels of a row show of the fringes, asked for where an edge may be.
/// @param y, x, n the row, the first pixel and how many there are
/// @param state   of these pixels, before any edge was closed
/// @param out     amplitudes, in any unit; negative where a pixel is clipped
using MagnitudeSource = std::function<void(int y, int x, int n, uchar const* state, float* out)>;

/// The magnitudes of the scanner's own fringes.
/// @param phaseImages P0 to P3, which must stay
MagnitudeSource magnitudesOf(std::vector<cv::Mat> const& phaseImages);

/// The same of any fringes, without coordinates.
void closeEdges(MagnitudeSource const& magnitudes, DecodingRules const& rules, ScanMaps& maps,
                Progress const& progress);

} // namespace vorn::mv::sl
