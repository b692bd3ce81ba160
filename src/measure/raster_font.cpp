// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/raster_font.hpp>

#include <algorithm>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "measure/glyphs.hpp"

namespace vorn::mv {

namespace {

constexpr int largestScale = 64;

cv::Mat_<uchar> enlarged(cv::Mat_<uchar> const& ink, int scale) {
  if (scale == 1 || ink.empty()) {
    return ink.clone();
  }
  cv::Mat_<uchar> large;
  cv::resize(ink, large, {}, scale, scale, cv::INTER_NEAREST);
  return large;
}

/// Sets the pixels under the ink, where they lie in the picture.
void stamp(cv::Mat& picture, cv::Mat_<uchar> const& ink, cv::Point corner, cv::Scalar const& color) {
  cv::Rect const place(corner, ink.size());
  cv::Rect const seen = place & cv::Rect(0, 0, picture.cols, picture.rows);
  if (!seen.empty()) {
    picture(seen).setTo(color, ink(seen - corner));
  }
}

} // namespace

RasterFont::RasterFont(FontSize size, int scale) : size_(size), scale_(scale) {
  if (scale < 1 || scale > largestScale) {
    throw error("The scale of a font must be 1 to 64, not " + std::to_string(scale), "RasterFont");
  }
}

int RasterFont::lineHeight() const {
  return gridOf(size_).height * scale_;
}

int RasterFont::ascent() const {
  return gridOf(size_).ascent * scale_;
}

int RasterFont::capHeight() const {
  return gridOf(size_).capHeight * scale_;
}

TextExtent RasterFont::measure(std::string_view text) const {
  TextBitmap const bitmap = bitmapOf(size_, text);
  return {bitmap.ink.cols * scale_, bitmap.ink.rows * scale_, bitmap.missing};
}

cv::Mat_<uchar> RasterFont::glyph(char32_t character) const {
  return enlarged(glyphOf(size_, character), scale_);
}

bool RasterFont::has(char32_t character) {
  return (character >= 0x20 && character <= 0x7E) || (character >= 0xA0 && character <= 0xFF);
}

cv::Mat_<uchar> RasterFont::render(std::string_view text) const {
  return enlarged(bitmapOf(size_, text).ink, scale_);
}

TextExtent RasterFont::draw(cv::Mat& picture, std::string_view text, cv::Point position,
                            TextStyle const& style) const {
  if (picture.empty() || picture.channels() > 4) {
    throw error("Text is drawn into pictures of 1 to 4 channels that are not empty", "RasterFont");
  }
  TextBitmap const bitmap = bitmapOf(size_, text);
  TextExtent const extent{bitmap.ink.cols * scale_, bitmap.ink.rows * scale_, bitmap.missing};
  if (bitmap.ink.empty()) {
    return extent;
  }
  constexpr int farOutside = 1 << 29; // of any picture, and far from overflow
  cv::Point corner(std::clamp(position.x, -farOutside, farOutside),
                   std::clamp(position.y, -farOutside, farOutside));
  corner.x -= style.across == TextAcross::Left    ? 0
              : style.across == TextAcross::Right ? extent.width
                                                  : extent.width / 2;
  corner.y -= style.down == TextDown::Top        ? 0
              : style.down == TextDown::Bottom   ? extent.height
              : style.down == TextDown::Baseline ? ascent()
                                                 : extent.height / 2;
  if (style.hasOutline) {
    cv::Mat_<uchar> ring;
    cv::copyMakeBorder(bitmap.ink, ring, 1, 1, 1, 1, cv::BORDER_CONSTANT, 0);
    cv::dilate(ring, ring, cv::Mat::ones(3, 3, CV_8U));
    stamp(picture, enlarged(ring, scale_), corner - cv::Point(scale_, scale_), style.outline);
  }
  stamp(picture, enlarged(bitmap.ink, scale_), corner, style.color);
  return extent;
}

} // namespace vorn::mv
