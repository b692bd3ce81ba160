// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>

#include "core/error.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

/// Checks that the maps of decoded patterns fit each other: they may be anybody's.
/// @throws Exception for a mask or modulation that is missing, and for maps of different sizes; coordinates
/// and
///         their sigmas may be missing
inline void requireDecodedSizes(DecodedPatterns const& decoded) {
  cv::Size const size = decoded.mask.size();
  std::pair<char const*, cv::Size> const maps[] = {{"column", decoded.column.size()},
                                                   {"row", decoded.row.size()},
                                                   {"sigmaColumn", decoded.sigmaColumn.size()},
                                                   {"sigmaRow", decoded.sigmaRow.size()}};
  for (auto const& [name, own] : maps) {
    if (!own.empty() && own != size) {
      throw error("The decoded map \"" + std::string(name) + "\" is " + sizeText(own) + ", the mask " +
                      sizeText(size),
                  "scan");
    }
  }
  if (size.empty() || decoded.modulation.size() != size) {
    throw error("The modulation of decoded patterns is " + sizeText(decoded.modulation.size()) +
                    ", the mask " + sizeText(size),
                "scan");
  }
}

} // namespace vorn::mv
