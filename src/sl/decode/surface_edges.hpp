// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sl/decode/scan_decoding.hpp"
#include "sl/decode/segments.hpp"

namespace vorn::mv::sl {

/// Makes the phase NaN in connected sets of grown pixels that touch a jump of the phase: by its phase alone a
/// pixel there fits the surface on either side, and growth may have come from the wrong one.
/// @param runs working memory
void dropDoubtfulGrowth(ScanDecodingBuffers& buffers, std::vector<Run>& runs);

/// Sets `kept` to 255 at pixels of known phase that see one surface, else to 0.
///
/// A pixel at the edge of a surface mixes the light of two, or of one and a shadow, and may show either
/// coordinate. It is told by a jump of the absolute phase beside it, or by a loss of amplitude where the
/// known phases end.
void keepOffEdges(ScanDecodingBuffers& buffers);

} // namespace vorn::mv::sl
