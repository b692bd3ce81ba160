// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

/// Which pixels' stripe codes to believe.
///
/// The code changes at the edge of a projector pixel, half a pixel before the phase wraps at the centre of
/// the next; around that place every pixel mixes the light of two stripes and its code may be anything.
namespace vorn::mv::sl {

/// Three rows around the pixels that are voted on: the row above, their own, the row below. Each can be read
/// one pixel beyond its ends.
struct VotingRows {
  float const* wrapped[3];
  short const* candidate[3]; ///< claimed order, or `noOrder`
};

/// Trusts the pixels of a row whose claimed order more of their neighbours agree with than contradict, and
/// closes those that more contradict. What makes no claim has no vote.
/// @param order takes the claimed order of trusted pixels, `noOrder` elsewhere
/// @param state in and out
void trustAgreeing(VotingRows const& rows, bool isVoteNeeded, int n, short* order, uchar* state);

/// Settles pixels of unsettled contrast: open where pixels of good contrast lie on both sides of them, all
/// around, within `reach` pixels, closed elsewhere.
/// @param hasUnsettled for every row, whether there is such a pixel
void settleContrast(ScanMaps& maps, std::vector<uchar> const& hasUnsettled, int reach);

} // namespace vorn::mv::sl
