// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"
#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// Called after each stage with its label, such as "-Masking:"; the caller times and logs.
using StageReport = std::function<void(char const* label)>;

/// Whether to say for every pixel what became of it.
enum class ReasonMap { Leave, Make };

struct DecodedScan {
  cv::Mat_<float> coordinates; ///< projector pixels; -1 where unknown
  cv::Mat_<uchar> reasons; ///< a `PixelReason` each, `Measured` where there is a coordinate; empty: not asked
  int filled;              ///< pixels that hole filling closed: measured in part, the others interpolated
};

/// The projector coordinate that each camera pixel sees, from the images of one scan.
///
/// The fringe gives the place within a stripe, the code the stripe; docs/decoding.md has the whole reasoning.
/// @param images   P0, P1, P2, P3, reference, planes relative to the reference; equal sizes, all CV_8UC1 or
/// all
///                 CV_16UC1
/// @param maps     working memory, kept for the next scan
/// @param progress is asked in every stage; between two askings lie some 20 ms on 12 megapixels
DecodedScan decodeScan(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings,
                       ReasonMap reasonMap, ScanMaps& maps, StageReport const& report,
                       Progress const& progress = {});

} // namespace vorn::mv::sl
