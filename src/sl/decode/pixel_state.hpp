// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/hal/interface.h>

#include <vorn/mv/sl/pixel_reason.hpp>

namespace vorn::mv::sl {

/// Where a pixel stands on its way through the decoding of a scan. One map of these goes through all stages.
///
/// A closed pixel has no coordinate, and its state is the `PixelReason`. An open one may still get the order
/// of its fringe. A known one has it.
namespace pixel_state {

constexpr uchar reasonOf(PixelReason reason) {
  return static_cast<uchar>(reason);
}

constexpr uchar clipped = reasonOf(PixelReason::Clipped);
constexpr uchar dark = reasonOf(PixelReason::Dark);
constexpr uchar lowContrast = reasonOf(PixelReason::LowContrast);
constexpr uchar noCode = reasonOf(PixelReason::NoCode);
constexpr uchar edge = reasonOf(PixelReason::Edge);
constexpr uchar smallPiece = reasonOf(PixelReason::SmallPiece);

constexpr uchar open = 0x40;
/// Open, beside a known pixel, for growth to take its turn.
constexpr uchar waiting = 0x41;
/// Open if pixels of good contrast lie around it, else of low contrast.
constexpr uchar unsettledContrast = 0x42;

/// Its own code is trusted.
constexpr uchar trusted = 0x80;
/// It lies between trusted pixels that agree.
constexpr uchar bridged = 0x81;
/// It took its order from a neighbour.
constexpr uchar grown = 0x82;
/// A hole that was filled: its coordinate is known, its order is not asked for.
constexpr uchar filled = 0x83;

constexpr uchar knownBit = 0x80;
constexpr uchar openBit = 0x40;

/// Of an open pixel, the steps of growth that have come to it; of one of unsettled contrast, none.
constexpr uchar growthBits = 0x1c;

constexpr bool isKnown(uchar state) {
  return (state & knownBit) != 0;
}
constexpr bool isOpen(uchar state) {
  return (state & openBit) != 0;
}
constexpr bool isWaiting(uchar state) {
  return (state & (knownBit | waiting)) == waiting;
}
constexpr bool isClosed(uchar state) {
  return state < openBit;
}

/// What is said of the pixel when decoding ends.
constexpr uchar finalReason(uchar state) {
  return isKnown(state) ? reasonOf(PixelReason::Measured) : isOpen(state) ? noCode : state;
}

} // namespace pixel_state
} // namespace vorn::mv::sl
