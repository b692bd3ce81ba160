// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/patterns.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/gray_code.hpp>

#include "core/error.hpp"
#include "sl/coding/axis_image.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv {

namespace {

using sl::Axis;
using sl::fringeLevel;
using sl::litWhere;
using sl::makeAxisImage;
using sl::roundedLevel;

Axis codedAxis(bool vertical) {
  return vertical ? Axis::Column : Axis::Row;
}

void requireSize(cv::Size size, char const* context) {
  if (size.width < 0 || size.height < 0) {
    throw error("An image cannot be " + std::to_string(size.width) + " x " + std::to_string(size.height) +
                    " pixels",
                context);
  }
}

void requirePeriod(int period, char const* context) {
  if (period < 1) {
    throw error("The period must be at least 1 pixel, not " + std::to_string(period), context);
  }
}

void requireGamma(float gamma, char const* context) {
  if (std::isnan(gamma)) {
    throw error("The gamma is not a number", context);
  }
}

/// Bit `bit` of the Gray code of c / period, over c; the bit's number counts modulo 32.
cv::Mat grayImage(cv::Size size, int period, int bit, Axis axis, char const* context) {
  requireSize(size, context);
  requirePeriod(period, context);
  unsigned int const shift = static_cast<unsigned int>(bit) % 32U;
  return makeAxisImage(size, axis, [=](int c) {
    return litWhere(((bin2Gray(static_cast<unsigned int>(c / period)) >> shift) & 1U) != 0);
  });
}

cv::Mat lineImage(cv::Size size, int period, int phase, Axis axis, char const* context) {
  requireSize(size, context);
  requirePeriod(period, context);
  return makeAxisImage(size, axis, [=](int c) { return litWhere(c % period == phase); });
}

/// The double's integer part, held to 0..255: an exponent below 0 brightens without bound.
uchar truncated(double value) {
  return static_cast<uchar>(std::clamp(value, 0.0, 255.0));
}

/// The images that code one coordinate of a projector.
std::vector<cv::Mat> combinedSequence(cv::Size size, Axis axis, sl::StripeCode const& code) {
  constexpr std::array<double, 4> offsets{0.0, 0.5 * CV_PI, CV_PI, 1.5 * CV_PI};
  int const planes = code.generatedPlanes(axis == Axis::Column ? size.width : size.height);

  std::vector<cv::Mat> images;
  for (double const offset : offsets) {
    images.push_back(
        makeAxisImage(size, axis, [=](int c) { return fringeLevel(c * 2 * CV_PI / code.period + offset); }));
  }
  for (int bit = 0; bit <= planes; ++bit) {
    images.push_back(makeAxisImage(size, axis, [=](int c) {
      return litWhere((sl::StripeCode::shownWord(code.stripeOf(c)) >> bit & 1U) != 0);
    }));
  }
  return images;
}

} // namespace

cv::Mat generate_gray_pattern(cv::Size_<int> const& size, int period, int bit, bool vertical) {
  return grayImage(size, period, bit, codedAxis(vertical), "generate_gray_pattern");
}

cv::Mat generate_horizontal_graycode_image(int width, int height, int bit) {
  return grayImage({width, height}, 1, bit, Axis::Row, "generate_horizontal_graycode_image");
}

cv::Mat generate_vertical_graycode_image(int width, int height, int bit) {
  return grayImage({width, height}, 1, bit, Axis::Column, "generate_vertical_graycode_image");
}

cv::Mat generate_horizontal_line_image(int width, int height, int period, int phase) {
  return lineImage({width, height}, period, phase, Axis::Row, "generate_horizontal_line_image");
}

cv::Mat generate_vertical_line_image(int width, int height, int period, int phase) {
  return lineImage({width, height}, period, phase, Axis::Column, "generate_vertical_line_image");
}

cv::Mat generate_vertical_stripe_pattern(int width, int height, int period, int stripeWidth, int offset) {
  constexpr char const* context = "generate_vertical_stripe_pattern";
  requireSize({width, height}, context);
  requirePeriod(period, context);
  return makeAxisImage({width, height}, Axis::Column, [=](int x) {
    std::int64_t const shifted = std::int64_t{x} + period - offset;
    return litWhere(shifted % period < stripeWidth);
  });
}

void generate_high_frequency_patterns(int width, int height, std::vector<cv::Mat>& out, int period,
                                      int count) {
  constexpr char const* context = "generate_high_frequency_patterns";
  if (count < 1) {
    out.clear();
    return;
  }
  requireSize({width, height}, context);
  requirePeriod(period, context);
  std::vector<cv::Mat> images;
  int const step = period / count;
  for (int k = 0; k < count; ++k) {
    auto const isLit = [=](int x) { return (x + std::int64_t{k} * step) / period % 2 == 1; };
    images.push_back(makeAxisImage({width, height}, Axis::Column, [=](int x) { return litWhere(isLit(x)); }));
    images.push_back(
        makeAxisImage({width, height}, Axis::Column, [=](int x) { return litWhere(!isLit(x)); }));
  }
  out = std::move(images);
}

cv::Mat generate_phase_pattern(cv::Size_<int> const& size, int period, int shift, float gamma,
                               bool vertical) {
  constexpr char const* context = "generate_phase_pattern";
  requireSize(size, context);
  requirePeriod(period, context);
  requireGamma(gamma, context);
  auto const radiansPerPixel = static_cast<float>(2 * CV_PI / period);
  return makeAxisImage(size, codedAxis(vertical), [=](int c) {
    auto const position = static_cast<float>((std::int64_t{c} + shift) % period);
    float const wave = std::sin(position * radiansPerPixel);
    auto const brightness = static_cast<float>(wave * 0.5 + 0.5);
    // 256, not 255: a full crest saturates.
    return roundedLevel(std::pow(brightness, gamma) * 256.0);
  });
}

cv::Mat generate_horizontal_phase_shift_pattern(int width, int height, int period, int shift,
                                                float /*gamma*/) {
  constexpr char const* context = "generate_horizontal_phase_shift_pattern";
  requireSize({width, height}, context);
  requirePeriod(period, context);
  return makeAxisImage({width, height}, Axis::Row, [=](int y) {
    double const angle = static_cast<double>(std::int64_t{y} - shift) * 2 * CV_PI / period;
    return truncated((std::cos(angle) + 1.0) * 255.0 * 0.5);
  });
}

cv::Mat generate_vertical_phase_shift_pattern(int width, int height, int period, int shift, float gamma) {
  constexpr char const* context = "generate_vertical_phase_shift_pattern";
  requireSize({width, height}, context);
  requirePeriod(period, context);
  requireGamma(gamma, context);
  return makeAxisImage({width, height}, Axis::Column, [=](int x) {
    double const angle = static_cast<double>(std::int64_t{x} - shift) * 2 * CV_PI / period;
    auto const brightness = static_cast<float>((std::cos(angle) + 1.0) * 0.5);
    return truncated(std::pow(brightness, gamma) * 255.0);
  });
}

void generate_ps4_patterns(std::vector<cv::Mat>& first, std::vector<cv::Mat>& second,
                           cv::Size_<int> const& size) {
  requireSize(size, "generate_ps4_patterns");
  std::vector<cv::Mat> columns = combinedSequence(size, Axis::Column, sl::columnCode);
  std::vector<cv::Mat> rows = combinedSequence(size, Axis::Row, sl::rowCode);
  first = std::move(columns);
  second = std::move(rows);
}

} // namespace vorn::mv
