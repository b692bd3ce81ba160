// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include "sl/coding/code_check.hpp"
#include "sl/decode/scan_decoding.hpp"

/// Which pixels' stripe codes to believe, and what the order of a fringe follows from where they cannot be.
///
/// The code changes at the edge of a projector pixel, half a pixel before the phase wraps at the centre of
/// the next; around that place every pixel mixes the light of two stripes and its code may be anything.
namespace vorn::mv::sl {

/// Turns codes into fringe orders and sets `state` to 255 where they are certain: the pixel is well modulated
/// (else `mask` becomes 0), all of its code images are far from their threshold, the phase is not at the
/// place where the code changes, and the pixels beside it agree. Pixels that contradict their neighbours are
/// masked.
/// @param lit as from `maskContrast`
void trustCodes(std::vector<cv::Mat> const& phaseImages, ScanDecodingSettings const& settings,
                cv::Mat_<uchar> const& lit, ScanDecodingBuffers& buffers);

/// Makes the absolute phase NaN where no order is known, and where it was grown but contradicts those of the
/// pixel's code images that are far from their threshold.
void settleOrders(CodeCheck const& codes, ScanDecodingBuffers& buffers);

} // namespace vorn::mv::sl
