// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vorn::mv {

/// The strokes of a character of Latin-1; empty for one without ink or without a glyph.
///
/// Separated by blanks: a run of vertices "xyxy..." is a line through them; ".xy" is a dot as wide as a line,
/// "oxy" a heavy one, each given by its lowest left pixel. x from 0 to 6; y: '0' is the top of capitals, '2'
/// that of small letters, '6' the baseline, '8' the lowest descender, and 'a', 'b', 'c' are 1, 2 and 3 above
/// '0'.
std::string strokesOf(unsigned char character);

} // namespace vorn::mv
