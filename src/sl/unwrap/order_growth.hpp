// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/progress.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// What growth of orders works on, and what it holds the orders against.
struct OrderMaps {
  ScanMaps& maps;
  CodeCheck codes;
  bool isChecked; ///< whether a pixel's code images are held against its order
};

/// Quality-guided unwrapping of what is open beside known pixels: in the order of their quality, as
/// `calc_quality` has it, pixels take the order that fits a known neighbour best. A pixel whose own code
/// images contradict its order is closed, and nothing grows from it; one that fits no neighbour stays open.
///
/// Growth in one region of 4-connected open pixels never sees another one, so regions take their turns one by
/// one, each while its part of the maps is in the cache. Bands of rows do so at the same time, first those
/// regions that lie inside of one band, then those inside of bands that begin half a band later. What is
/// left, the largest regions, is grown together.
void growOrders(OrderMaps const& maps, Progress const& progress);

} // namespace vorn::mv::sl
