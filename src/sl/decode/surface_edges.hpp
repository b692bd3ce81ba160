// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/progress.hpp"
#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Closes the known pixels that do not see one surface alone, and writes the coordinates of the others.
///
/// A pixel at the edge of a surface mixes the light of two, or of one and a shadow, and may show either
/// coordinate. It is told by a jump of the absolute phase beside it, or by a loss of amplitude where the
/// known phases end.
/// @param phaseImages P0 to P3
/// @param coordinates takes projector pixels, `noPhase` where there is none
void closeEdges(std::vector<cv::Mat> const& phaseImages, ScanDecodingSettings const& settings, ScanMaps& maps,
                cv::Mat_<float>& coordinates, Progress const& progress);

} // namespace vorn::mv::sl
