// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Camera pixels between the codes that are compared.
constexpr int samplingReach = 8;

/// Whether the codes of a row are looked at: what its code images show must be in the maps.
constexpr bool isSampledRow(int y) {
  return y % samplingReach == 0;
}

/// Throws an Exception of context "decode" when the camera's pixels are too coarse for the fringes.
///
/// The fringes' own phase cannot tell: sampled too coarsely it looks like that of a longer fringe. The code's
/// images have twice the period, so a code still tells over some pixels how many fringes pass. Where too few
/// codes form a surface, as in noise or darkness, nothing is judged.
/// @param maps after all pixels have been read; of `reading`, only the rows that are sampled
void requireResolvedFringes(ScanMaps const& maps, ScanDecodingSettings const& settings, int codeImages);

} // namespace vorn::mv::sl
