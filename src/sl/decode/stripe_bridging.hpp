// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sl/coding/code_check.hpp"
#include "sl/decode/scan_decoding.hpp"

namespace vorn::mv::sl {

/// Gives their orders to the pixels between two trusted ones of a row or a column, where following the phase
/// from one over a stripe border leads to the order of the other. Those among them that their own code images
/// contradict are closed to growth.
void bridgeStripeBorders(ScanDecodingSettings const& settings, CodeCheck const& codes,
                         ScanDecodingBuffers& buffers);

} // namespace vorn::mv::sl
