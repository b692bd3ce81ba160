// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/progress.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Closes 8-connected sets of grown pixels that touch a jump of the phase: by its phase alone a pixel there
/// fits the surface on either side, and growth may have come from the wrong one.
void dropDoubtfulGrowth(ScanMaps& maps, Progress const& progress);

} // namespace vorn::mv::sl
