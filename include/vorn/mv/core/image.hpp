// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The layout of an image's pixels.
struct VORN_API PixelFormat {
  /// The channels of a pixel, in the order in which they lie in memory.
  enum class Order { Gray, BGR, RGB, BGRA, RGBA };

  /// The channels of a pixel.
  Order order = Order::Gray;
  /// 8 or 16.
  int bitsPerChannel = 8;

  /// 1, 3 or 4.
  int channels() const;
  /// 1 to 8.
  std::size_t bytesPerPixel() const { return static_cast<std::size_t>(channels() * bitsPerChannel / 8); }
};

/// A captured image as a host holds it: rows of pixels without gaps, owned by the image.
class VORN_API Image {
public:
  Image() = default;
  /// Copies the pixels; `data` holds width x height pixels of `format` without gaps between rows.
  /// @throws Exception for a negative size, an unknown number of bits or null data with a size
  Image(void const* data, int width, int height, PixelFormat format);

  /// The first byte, or null when empty.
  std::uint8_t const* getData() const { return data_.empty() ? nullptr : data_.data(); }
  /// The first byte, to change; null when empty.
  std::uint8_t* getData() { return data_.empty() ? nullptr : data_.data(); }
  /// Pixels in a row.
  int getWidth() const { return width_; }
  /// Number of rows.
  int getHeight() const { return height_; }
  /// How the pixels lie in memory.
  PixelFormat const& getPixelFormat() const { return format_; }
  /// True when there are no pixels.
  bool isEmpty() const { return data_.empty(); }

private:
  std::vector<std::uint8_t> data_;
  int width_ = 0;
  int height_ = 0;
  PixelFormat format_;
};

/// The image as H x W CV_8UC3 in OpenCV's order; 16 bits are scaled to 8, alpha is dropped, grey is repeated.
/// Working memory: none at 8 bits, a byte a channel and pixel at 16.
VORN_API cv::Mat toBGRMat(Image const& image);
/// The image with all its bits, as `scan` and `decode_patterns` take it: H x W of 8 or 16 bits, grey of one
/// channel, colours of three in OpenCV's order; alpha is dropped. Nothing is scaled: 10 or 12 bits that a
/// driver delivers in 16 stay as they are. Working memory: none.
VORN_API cv::Mat toMat(Image const& image);
/// The image as H x W CV_8UC1; colours are weighted as by `cv::cvtColor`, 16 bits are scaled to 8, of
/// which 10 or 12 bits that a driver delivers in 16 leave the darkest levels only: `toMat` keeps them.
/// Working memory as for `toBGRMat`.
VORN_API cv::Mat toGrayMat(Image const& image);

} // namespace vorn::mv
