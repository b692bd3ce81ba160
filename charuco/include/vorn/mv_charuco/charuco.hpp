// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/core/export.hpp>

/// ChArUco boards, in the library `vorn::mv_charuco`: it needs OpenCV's contributed modules, which
/// `vorn::mv` does without.
namespace vorn::mv {

/// Lets `detectTarget`, and with it all calibrations, find targets of `TargetKind::Charuco`.
///
/// A corner is found where a marker beside it is seen, so any part of the board will do. The corners of a
/// board count from its upper left one, as the markers do; whether the board's upper left square is dark
/// (OpenCV from 4.6 on) or holds its first marker (before, for an even number of rows) is found out. A corner
/// is the saddle of the grey levels in a window that ends before the markers. A board of another dictionary,
/// or of another number of columns, is refused with what was seen.
///
/// `ITargetFinder::darkParts` of the finder draws boards as OpenCV does from 4.6 on.
VORN_API void useCharuco();

/// The dictionaries by OpenCV's names: "DICT_4X4_50" to "DICT_APRILTAG_36h11".
VORN_API std::vector<std::string> charucoDictionaries();

} // namespace vorn::mv

/// As `useCharuco`, for programs that load the library when they run: its name can be looked up.
extern "C" VORN_API void vorn_mv_use_charuco();
