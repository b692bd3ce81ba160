// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/laser/laser_grey.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

constexpr double fullBytes = 255;
constexpr double fullWords = 65535;

void requireLaserImage(cv::Mat const& image) {
  bool const isDepth =
      image.depth() == CV_8U || image.depth() == CV_16U || image.depth() == CV_32F || image.depth() == CV_64F;
  if (image.dims != 2 || !isDepth || (image.channels() != 1 && image.channels() != 3)) {
    throw error("Expected an image of 8 or 16 bits or floats with one or three channels, not " +
                    cv::typeToString(image.type()),
                "extract_laser_line");
  }
}

/// The brightest channel of every pixel.
template <class T>
cv::Mat brightest(cv::Mat const& image) {
  cv::Mat result(image.size(), CV_MAKETYPE(image.depth(), 1));
  parallelRows(image.rows, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      T const* const in = image.ptr<T>(row);
      T* const out = result.ptr<T>(row);
      std::ptrdiff_t const cols = image.cols;
      for (std::ptrdiff_t x = 0; x < cols; ++x) {
        out[x] = std::max({in[3 * x], in[3 * x + 1], in[3 * x + 2]});
      }
    }
  });
  return result;
}

/// A sum of channels in 16 bits.
template <class T>
cv::Mat summed(cv::Mat const& image, LaserColor const& color, double white) {
  cv::Mat result(image.size(), CV_16UC1);
  auto const scale = static_cast<float>(fullWords / white);
  auto const full = static_cast<float>(white);
  float const blue = scale * static_cast<float>(color.weights[0]);
  float const green = scale * static_cast<float>(color.weights[1]);
  float const red = scale * static_cast<float>(color.weights[2]);
  parallelRows(image.rows, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      T const* const in = image.ptr<T>(row);
      auto* const out = result.ptr<std::uint16_t>(row);
      std::ptrdiff_t const cols = image.cols;
      for (std::ptrdiff_t x = 0; x < cols; ++x) {
        auto const b = static_cast<float>(in[3 * x]);
        auto const g = static_cast<float>(in[3 * x + 1]);
        auto const r = static_cast<float>(in[3 * x + 2]);
        bool const isFull =
            ((blue > 0) & (b >= full)) | ((green > 0) & (g >= full)) | ((red > 0) & (r >= full));
        float const sum = isFull ? static_cast<float>(fullWords) : blue * b + green * g + red * r;
        out[x] = cv::saturate_cast<std::uint16_t>(sum);
      }
    }
  });
  return result;
}

cv::Mat singleChannel(cv::Mat const& image, LaserColor const& color, double white) {
  if (image.channels() == 1) {
    return image;
  }
  if (color.isBrightest()) {
    return image.depth() == CV_8U    ? brightest<std::uint8_t>(image)
           : image.depth() == CV_16U ? brightest<std::uint16_t>(image)
                                     : brightest<float>(image);
  }
  return image.depth() == CV_8U    ? summed<std::uint8_t>(image, color, white)
         : image.depth() == CV_16U ? summed<std::uint16_t>(image, color, white)
                                   : summed<float>(image, color, white);
}

} // namespace

LaserGrey laserGrey(cv::Mat const& given, LaserColor const& color, double white) {
  requireLaserImage(given);
  cv::Mat image = given;
  bool const isReal = given.depth() == CV_32F || given.depth() == CV_64F;
  if (isReal) {
    given.convertTo(image, CV_32F);
    image = image.clone();
    cv::patchNaNs(image);
  }
  cv::Mat const single = singleChannel(image, color, white);
  LaserGrey grey;
  if (single.depth() == CV_8U) {
    grey.levels = single;
    grey.bytes = single;
    return grey;
  }
  // Sums are scaled already, and what is not a whole number becomes one.
  bool const isScaled = single.depth() == CV_16U && image.channels() == 3 && !color.isBrightest();
  if (isReal && !isScaled) {
    single.convertTo(grey.levels, CV_16U, fullWords / white);
  } else {
    grey.levels = single;
  }
  grey.perGrey = (isReal || isScaled ? fullWords : white) / fullBytes;
  grey.levels.convertTo(grey.bytes, CV_8U, 1.0 / grey.perGrey);
  return grey;
}

} // namespace vorn::mv
