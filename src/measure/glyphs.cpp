// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/glyphs.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include "measure/font_strokes.hpp"

namespace vorn::mv {

namespace {

constexpr int firstRow = 3; // rows of the drawing above the top of capitals
constexpr std::size_t columns = 7;
constexpr std::size_t rows = 12;

/// Where the drawing's columns and rows lie in each size, so that every line falls on whole pixels.
struct Layout {
  FontGrid grid;
  std::array<int, columns> x;
  std::array<int, rows> y; ///< from 3 above the capitals to 8 below their top
  int pen;                 ///< width and height of the pen, which hangs to the right and below
  cv::Size dot;
  cv::Size heavyDot;
};

Layout const& layoutOf(FontSize size) {
  static Layout const small{
      {10, 13, 7, 1, 4}, {0, 1, 2, 3, 4, 5, 6}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}, 1, {1, 1}, {2, 2}};
  static Layout const medium{{15, 19, 10, 2, 5},
                             {0, 1, 3, 5, 6, 8, 9},
                             {0, 2, 3, 5, 6, 8, 9, 11, 13, 14, 16, 17},
                             1,
                             {1, 2},
                             {2, 2}};
  static Layout const large{{20, 26, 14, 3, 8},
                            {0, 2, 4, 6, 8, 10, 12},
                            {0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22},
                            2,
                            {2, 3},
                            {3, 3}};
  return size == FontSize::Small ? small : size == FontSize::Medium ? medium : large;
}

class Drawing {
public:
  explicit Drawing(Layout const& layout)
      : layout_(layout), ink_(layout.grid.height, layout.x.back() + layout.pen + 1, uchar{0}) {}

  void stroke(std::string const& token) {
    if (token[0] == '.' || token[0] == 'o') {
      dot(at(token, 1), token[0] == '.' ? layout_.dot : layout_.heavyDot);
      return;
    }
    for (std::size_t i = 2; i < token.size(); i += 2) {
      line(at(token, i - 2), at(token, i));
    }
  }

  /// What is drawn, cut to its columns, or to those of digits.
  cv::Mat_<uchar> cut(bool isDigit) const {
    int first = 0;
    int last = layout_.x[4] + layout_.pen - 1;
    if (!isDigit) {
      auto const isBlank = [&](int x) { return cv::countNonZero(ink_.col(x)) == 0; };
      for (last = ink_.cols - 1; last > 0 && isBlank(last); --last) {
      }
      for (; first < last && isBlank(first); ++first) {
      }
    }
    return ink_.colRange(first, last + 1).clone();
  }

private:
  cv::Point at(std::string const& token, std::size_t i) const {
    char const row = token[i + 1];
    int const y = row >= 'a' ? firstRow - 1 - (row - 'a') : firstRow + (row - '0');
    return {layout_.x[static_cast<std::size_t>(token[i] - '0')], layout_.y[static_cast<std::size_t>(y)]};
  }

  void dot(cv::Point lowest, cv::Size size) {
    int const bottom = lowest.y + layout_.pen;
    fill({lowest.x, bottom - size.height, size.width, size.height});
  }

  /// The place `i` of `steps` on the way from a to b, to the nearest pixel; half way between two it is the
  /// one nearer to `preferred`, so that letters come out symmetric whatever way their strokes run.
  static int between(int a, int b, int i, int steps, int preferred) {
    int const twice = 2 * (a * (steps - i) + b * i);
    int const lower = twice / (2 * steps);
    int const rest = twice - 2 * steps * lower;
    if (rest == steps) {
      return preferred > lower ? lower + 1 : lower;
    }
    return rest > steps ? lower + 1 : lower;
  }

  void line(cv::Point from, cv::Point to) {
    int const steps = std::max({std::abs(to.x - from.x), std::abs(to.y - from.y), 1});
    for (int i = 0; i <= steps; ++i) {
      fill({between(from.x, to.x, i, steps, layout_.x[2]), between(from.y, to.y, i, steps, ink_.rows),
            layout_.pen, layout_.pen});
    }
  }

  void fill(cv::Rect const& pixels) { ink_(pixels & cv::Rect(0, 0, ink_.cols, ink_.rows)).setTo(255); }

  Layout const& layout_;
  cv::Mat_<uchar> ink_;
};

constexpr std::size_t boxPlace = 256;
using GlyphTable = std::array<cv::Mat_<uchar>, boxPlace + 1>;

cv::Mat_<uchar> drawnGlyph(Layout const& layout, std::string const& strokes, bool isDigit) {
  Drawing drawing(layout);
  std::istringstream tokens(strokes);
  for (std::string token; tokens >> token;) {
    drawing.stroke(token);
  }
  return drawing.cut(isDigit);
}

GlyphTable drawnTable(FontSize size) {
  GlyphTable table;
  Layout const& layout = layoutOf(size);
  for (std::size_t c = 0; c < boxPlace; ++c) {
    std::string const strokes = strokesOf(static_cast<unsigned char>(c));
    if (!strokes.empty()) {
      table[c] = drawnGlyph(layout, strokes, c >= '0' && c <= '9');
    }
  }
  table[boxPlace] = drawnGlyph(layout, "0040460600", false);
  return table;
}

GlyphTable const& tableOf(FontSize size) {
  static std::array<GlyphTable, 3> const tables{drawnTable(FontSize::Small), drawnTable(FontSize::Medium),
                                                drawnTable(FontSize::Large)};
  return tables[static_cast<std::size_t>(size)];
}

constexpr char32_t notACharacter = 0xFFFD;

/// The number of bytes that a lead byte says its character has; 0 for a byte that leads none.
std::size_t lengthOf(unsigned char lead) {
  return lead < 0x80                   ? 1
         : lead >= 0xC2 && lead < 0xE0 ? 2
         : lead >= 0xE0 && lead < 0xF0 ? 3
         : lead >= 0xF0 && lead < 0xF5 ? 4
                                       : 0;
}

} // namespace

FontGrid const& gridOf(FontSize size) {
  return layoutOf(size).grid;
}

cv::Mat_<uchar> const& glyphOf(FontSize size, char32_t character) {
  return tableOf(size)[RasterFont::has(character) ? static_cast<std::size_t>(character) : boxPlace];
}

std::vector<char32_t> decodeUtf8(std::string_view text) {
  std::vector<char32_t> characters;
  for (std::size_t i = 0; i < text.size();) {
    auto const lead = static_cast<unsigned char>(text[i]);
    std::size_t const length = lengthOf(lead);
    char32_t character = length == 1 ? lead : lead & (0x7FU >> length);
    std::size_t taken = length == 0 ? 0 : 1;
    while (taken > 0 && taken < length && i + taken < text.size() &&
           (static_cast<unsigned char>(text[i + taken]) & 0xC0U) == 0x80U) {
      character = (character << 6U) | (static_cast<unsigned char>(text[i + taken]) & 0x3FU);
      ++taken;
    }
    characters.push_back(taken == length && length > 0 ? character : notACharacter);
    i += std::max<std::size_t>(taken, 1);
  }
  return characters;
}

TextBitmap bitmapOf(FontSize size, std::string_view text) {
  struct Placed {
    cv::Mat_<uchar> const* glyph;
    int x;
    int line;
  };
  FontGrid const& grid = gridOf(size);
  TextBitmap bitmap;
  std::vector<Placed> placed;
  int x = 0;
  int line = 0;
  int width = 0;
  for (char32_t const character : decodeUtf8(text)) {
    if (character == '\n') {
      x = 0;
      ++line;
      continue;
    }
    bitmap.missing += RasterFont::has(character) ? 0 : 1;
    cv::Mat_<uchar> const& glyph = glyphOf(size, character);
    if (glyph.empty()) {
      x += grid.space;
      width = std::max(width, x);
      continue;
    }
    placed.push_back({&glyph, x, line});
    width = std::max(width, x + glyph.cols);
    x += glyph.cols + grid.spacing;
  }
  bitmap.ink = cv::Mat_<uchar>(text.empty() ? 0 : (line + 1) * grid.height, width, uchar{0});
  for (Placed const& one : placed) {
    one.glyph->copyTo(bitmap.ink(cv::Rect(one.x, one.line * grid.height, one.glyph->cols, grid.height)));
  }
  return bitmap;
}

} // namespace vorn::mv
