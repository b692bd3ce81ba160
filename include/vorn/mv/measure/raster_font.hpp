// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The three sizes of the built-in letters: capitals of 7, 10 and 14 pixels.
enum class FontSize { Small, Medium, Large };

/// Which point of a text's box a position means, across.
enum class TextAcross {
  Left,   ///< the box begins there
  Middle, ///< half of the box lies on either side
  Right   ///< the box ends there
};

/// Which point of a text's box a position means, down.
enum class TextDown {
  Top,      ///< the top of the first line, above the accents
  Middle,   ///< half of the box lies above
  Baseline, ///< the baseline of the first line
  Bottom    ///< the lower end of the last line
};

/// How much room a text takes, in pixels.
struct TextExtent {
  int width = 0;  ///< of the widest line
  int height = 0; ///< of all lines
  /// Characters that the font has no glyph for; a box stands in their place.
  std::size_t missing = 0;
};

/// How a text is drawn into a picture.
struct TextStyle {
  /// In the picture's own channels and units.
  cv::Scalar color = cv::Scalar::all(255);
  /// Whether a ring is drawn around the letters.
  bool hasOutline = false;
  /// Of the ring around the letters, one font pixel wide, for contrast on any ground.
  cv::Scalar outline = cv::Scalar::all(0);
  TextAcross across = TextAcross::Left; ///< what of the text stands at the position, across
  TextDown down = TextDown::Top;        ///< and down
};

/// Letters of pixels, built in: nothing depends on what is installed, and every machine draws the same bits.
///
/// Printable ASCII and Latin-1 (U+0020 to U+007E, U+00A0 to U+00FF), given as UTF-8. Proportional, with
/// digits of one width, so that numbers stand in columns. A line feed starts a new line. Any other character,
/// and any byte that is not UTF-8, is drawn as a box and counted in `TextExtent::missing`.
class VORN_API RasterFont {
public:
  /// @param scale the size of a font pixel, in picture pixels: 1 to 64
  /// @throws Exception for another scale
  explicit RasterFont(FontSize size = FontSize::Medium, int scale = 1);

  /// The size of the letters before they are enlarged.
  FontSize size() const { return size_; }
  /// Picture pixels a font pixel, 1 to 64.
  int scale() const { return scale_; }
  /// From one line's top to the next one's.
  int lineHeight() const;
  /// From the top of a line, above the accents, to the row below the baseline's.
  int ascent() const;
  /// Of capitals, in picture pixels.
  int capHeight() const;

  /// The width of the widest line, and the height of all lines.
  TextExtent measure(std::string_view text) const;

  /// One character as 0 and 255, CV_8UC1, as wide as its ink and `lineHeight()` high; empty for a character
  /// without ink (a space). A box for one without a glyph.
  cv::Mat_<uchar> glyph(char32_t character) const;
  /// Whether there is a glyph of its own.
  static bool has(char32_t character);

  /// The text as 0 and 255, CV_8UC1, of the size that `measure` gives; lines stand left.
  cv::Mat_<uchar> render(std::string_view text) const;

  /// Draws the text; what lies outside the picture is left out.
  /// @param picture any depth, 1 to 4 channels
  /// @throws Exception when the picture is empty or has more channels
  TextExtent draw(cv::Mat& picture, std::string_view text, cv::Point position,
                  TextStyle const& style = {}) const;

private:
  FontSize size_;
  int scale_;
};

} // namespace vorn::mv
