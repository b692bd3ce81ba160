// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/measure/raster_font.hpp>

namespace vorn::mv {

/// The grid of one size of letters, in font pixels.
struct FontGrid {
  int ascent; ///< rows from the top of a line to below the baseline
  int height; ///< rows of a line, with the gap to the next
  int capHeight;
  int spacing; ///< columns between letters
  int space;   ///< advance of a blank
};

FontGrid const& gridOf(FontSize size);

/// Ink 255, as wide as the ink and as high as a line; empty for a blank. `character` beyond Latin-1 or
/// without a glyph gives the box.
cv::Mat_<uchar> const& glyphOf(FontSize size, char32_t character);

/// The characters of UTF-8; a byte that is none gives U+FFFD.
std::vector<char32_t> decodeUtf8(std::string_view text);

/// The bitmap of a text in font pixels, lines to the left, and the number of boxes in it.
struct TextBitmap {
  cv::Mat_<uchar> ink;
  std::size_t missing = 0;
};
TextBitmap bitmapOf(FontSize size, std::string_view text);

} // namespace vorn::mv
