// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/core/image.hpp>

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

/// How `cv::cvtColor` gets from a pixel order to blue, green, red and to grey; -1 where nothing is to be
/// done.
struct Conversion {
  int toBGR;
  int toGray;
};

Conversion conversion(PixelFormat::Order order) {
  switch (order) {
  case PixelFormat::Order::Gray:
    return {cv::COLOR_GRAY2BGR, -1};
  case PixelFormat::Order::BGR:
    return {-1, cv::COLOR_BGR2GRAY};
  case PixelFormat::Order::RGB:
    return {cv::COLOR_RGB2BGR, cv::COLOR_RGB2GRAY};
  case PixelFormat::Order::BGRA:
    return {cv::COLOR_BGRA2BGR, cv::COLOR_BGRA2GRAY};
  case PixelFormat::Order::RGBA:
    return {cv::COLOR_RGBA2BGR, cv::COLOR_RGBA2GRAY};
  }
  throw error("Unknown pixel format", "Image");
}

/// A view of the image's pixels, of which OpenCV has none that is const: to be read only.
cv::Mat viewOf(Image const& image) {
  PixelFormat const& format = image.getPixelFormat();
  int const depth = format.bitsPerChannel == 8 ? CV_8U : CV_16U;
  return {image.getHeight(), image.getWidth(), CV_MAKETYPE(depth, format.channels()),
          const_cast<std::uint8_t*>(image.getData())};
}

cv::Mat converted(Image const& image, int Conversion::*code) {
  if (image.isEmpty()) {
    return {};
  }
  cv::Mat const pixels = viewOf(image);
  int const depth = pixels.depth();
  cv::Mat bytes = pixels;
  if (depth != CV_8U) {
    constexpr double byteFromWord = 255.0 / 65535.0;
    pixels.convertTo(bytes, CV_8U, byteFromWord);
  }
  int const step = conversion(image.getPixelFormat().order).*code;
  cv::Mat result;
  if (step >= 0) {
    cv::cvtColor(bytes, result, step);
  } else {
    result = depth == CV_8U ? pixels.clone() : bytes;
  }
  return result;
}

} // namespace

int PixelFormat::channels() const {
  switch (order) {
  case Order::Gray:
    return 1;
  case Order::BGR:
  case Order::RGB:
    return 3;
  case Order::BGRA:
  case Order::RGBA:
    return 4;
  }
  return 0;
}

Image::Image(void const* data, int width, int height, PixelFormat format)
    : width_(width), height_(height), format_(format) {
  if (width < 0 || height < 0) {
    throw error("An image cannot be " + std::to_string(width) + " x " + std::to_string(height), "Image");
  }
  if (format.bitsPerChannel != 8 && format.bitsPerChannel != 16) {
    throw error("An image has 8 or 16 bits a channel, not " + std::to_string(format.bitsPerChannel), "Image");
  }
  std::size_t const size =
      static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * format.bytesPerPixel();
  if (size > 0 && data == nullptr) {
    throw error("No data for the image", "Image");
  }
  auto const* first = static_cast<std::uint8_t const*>(data);
  data_.assign(first, first + size);
}

cv::Mat toBGRMat(Image const& image) {
  return converted(image, &Conversion::toBGR);
}

cv::Mat toMat(Image const& image) {
  if (image.isEmpty()) {
    return {};
  }
  PixelFormat::Order const order = image.getPixelFormat().order;
  int const step = order == PixelFormat::Order::Gray ? -1 : conversion(order).toBGR;
  cv::Mat const pixels = viewOf(image);
  if (step < 0) {
    return pixels.clone();
  }
  cv::Mat result;
  cv::cvtColor(pixels, result, step);
  return result;
}

cv::Mat toGrayMat(Image const& image) {
  return converted(image, &Conversion::toGray);
}

} // namespace vorn::mv
