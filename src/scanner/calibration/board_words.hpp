// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::mv {

/// Whether the target is a board, whose points are corners.
bool hasCorners(CalibrationSettings const& settings);

/// A text that speaks of a target's dots, about a board: of its corners.
std::string withCorners(std::string const& text);

/// Lets all that a calibration from a board says speak of corners.
void speakOfCorners(Calibration& calibration);

} // namespace vorn::mv
