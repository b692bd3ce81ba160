// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "sl/decode/grey_stack.hpp"
#include "sl/decode/scan_stack.hpp"

namespace vorn::mv {

/// In what the images of one of the scanner's own sequences contradict it, by the checks that
/// `decode_patterns` does, at samples: some lines of the image, and places all over it.
/// @param axis  that the sequence codes
/// @param coded the same, with the projector's pixels
/// @param stack that can be decoded, with all images of the sequence
/// @param maxGrayLevel the decoder's, grey levels: brighter pixels do not count
std::vector<PatternDoubt> sequenceDoubts(sl::GreyStack const& stack, PatternAxis axis,
                                         sl::CodedAxis const& coded, double maxGrayLevel = 150.0);

} // namespace vorn::mv
