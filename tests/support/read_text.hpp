// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/measure/raster_font.hpp>

namespace vorn::test {

/// Reads one line of text back, glyph by glyph, from a mask of its ink as high as a line; '?' for ink that is
/// no glyph of ASCII. Blanks are told by their width.
inline std::string readLine(cv::Mat_<uchar> const& ink, mv::RasterFont const& font) {
  int const blank = font.measure(" ").width;
  std::string text;
  int x = 0;
  int gap = 0;
  while (x < ink.cols) {
    // The widest glyph that fits: a part of one may be another, as the bar of an L is.
    char best = 0;
    int width = 0;
    for (char c = '!'; c <= '~'; ++c) {
      cv::Mat_<uchar> const glyph = font.glyph(static_cast<unsigned char>(c));
      if (glyph.cols > width && x + glyph.cols <= ink.cols && glyph.rows == ink.rows &&
          cv::norm(ink.colRange(x, x + glyph.cols), glyph, cv::NORM_INF) == 0) {
        best = c;
        width = glyph.cols;
      }
    }
    if (best == 0) {
      gap += 1;
      x += 1;
      if (cv::countNonZero(ink.col(x - 1)) != 0) {
        text += '?';
        gap = 0;
      }
      continue;
    }
    text += std::string(static_cast<std::size_t>(text.empty() ? 0 : gap / blank), ' ') + best;
    gap = 0;
    x += width;
  }
  return text;
}

} // namespace vorn::test
