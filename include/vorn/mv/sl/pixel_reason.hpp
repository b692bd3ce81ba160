// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vorn::mv {

/// What became of a camera pixel in a scan: measured, or why not. Where several reasons hold, the first one
/// in this order is told. The values are those of a mask's pixels.
enum class PixelReason : std::uint8_t {
  Measured = 0, ///< it has a coordinate and, after triangulation, a point
  Clipped,      ///< brighter than "MaxGrayLevel", or clipped (255 of 8 bits) in a phase image
  Dark,         ///< its fringe amplitude is below "Sensitivity", or its fringes below "MinPhaseConfident"
  LowContrast,  ///< the range of its code images is below "BlackWhiteSensitivity"
  NoCode,       ///< the order of its fringe is not known: no trusted code reaches it, or codes contradict it
  Edge,         ///< it lies on an edge of the surface, where fringes of two surfaces mix
  SmallPiece,   ///< its connected piece of surface has fewer than "MinSegmentSize" pixels
  NoPoint,      ///< it has a coordinate, but that is off the projector's image, or its ray meets the plane of
                ///< light behind the camera, nowhere, or so far away that half a pixel makes it nowhere
  Contradiction ///< its column and its row are not of one point in space; see `PatternScanner`
};

/// How many reasons there are: their values are below.
constexpr int pixelReasonCount = 9;

} // namespace vorn::mv
