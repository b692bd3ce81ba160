// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/progress.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Settles pixels of unsettled contrast: open where pixels of good contrast lie on both sides of them, all
/// around, within `reach` pixels, closed elsewhere. At every second stripe border all code images pass the
/// middle together, and their range vanishes between stripes that have it.
/// @param hasUnsettled for every row, whether there is such a pixel
void settleContrast(ScanMaps& maps, std::vector<uchar> const& hasUnsettled, int reach,
                    Progress const& progress = {});

} // namespace vorn::mv::sl
