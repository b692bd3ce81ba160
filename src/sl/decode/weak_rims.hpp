// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"
#include "sl/decode/surface_edges.hpp"

namespace vorn::mv::sl {

/// Carries surfaces on over pixels of too little contrast, where they turn away from the light: rims of
/// balls and bars. Such a pixel takes the order that continues the phase of two known ones before it, if it
/// fits, if it is not much darker than they are, as it is beyond a shadow's border, and if light comes from
/// beyond it, too: before nothing a surface may end within the pixel.
///
/// Edges are closed before that: these pixels are no ends of surfaces.
/// @param coordinates takes the projector pixels of what was found
void carryOnOverRims(MagnitudeSource const& magnitudes, ScanDecodingSettings const& settings, ScanMaps& maps,
                     cv::Mat_<float>& coordinates);

} // namespace vorn::mv::sl
