// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/shown_image.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/measure/histogram.hpp>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

/// What 0.1 % and 99.9 % of the finite values do not exceed.
ShownRange usualRange(cv::Mat const& image) {
  constexpr double share = 0.001;
  constexpr int mostRounds = 100; // bins within bins, for floats with a few values far off
  HistogramSettings settings;
  ShownRange range;
  for (int round = 0; round < mostRounds; ++round) {
    Histogram const histogram = calcHistogram(image, settings);
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (std::size_t c = 0; c < std::min<std::size_t>(histogram.channels.size(), 3); ++c) {
      if (histogram.total(c) > 0) {
        low = std::min(low, histogram.percentile(c, share));
        high = std::max(high, histogram.percentile(c, 1.0 - share));
      }
    }
    if (low > high) {
      return range; // nothing finite
    }
    double const width = high > low ? 0.0 : std::max(0.5, std::abs(low) * 1e-6);
    range = {low - width, high + width};
    settings.low = low - histogram.binWidth();
    settings.high = high + histogram.binWidth();
    constexpr double enough = 0.25; // of the bins are in use
    if (image.depth() < CV_32S || settings.high - settings.low > enough * (histogram.high - histogram.low)) {
      break;
    }
  }
  return range;
}

cv::Mat threeChannels(cv::Mat const& image) {
  if (image.channels() == 3) {
    return image.clone();
  }
  if (image.channels() == 1 && image.depth() == CV_8U) {
    cv::Mat color;
    cv::cvtColor(image, color, cv::COLOR_GRAY2BGR);
    return color;
  }
  cv::Mat color(image.size(), CV_MAKETYPE(image.depth(), 3));
  bool const isGray = image.channels() == 1;
  int const pairs[] = {0, 0, isGray ? 0 : 1, 1, isGray ? 0 : 2, 2};
  cv::mixChannels(&image, 1, &color, 1, pairs, 3);
  return color;
}

cv::Mat zoomed(cv::Mat const& image, double zoom) {
  if (zoom == 1.0) {
    return image;
  }
  cv::Size const size(std::max(1, cvRound(image.cols * zoom)), std::max(1, cvRound(image.rows * zoom)));
  cv::Mat result;
  if (zoom > 1.0) {
    cv::resize(image, result, size, 0, 0, cv::INTER_NEAREST);
    return result;
  }
  bool const isResizable = image.depth() != CV_8S && image.depth() != CV_32S;
  cv::Mat source = image;
  if (!isResizable) {
    image.convertTo(source, CV_64F);
  }
  cv::resize(source, result, size, 0, 0, cv::INTER_AREA);
  if (!isResizable) {
    result.convertTo(result, image.depth());
  }
  return result;
}

} // namespace

ShownRange shownRange(cv::Mat const& image, DrawSettings const& settings) {
  constexpr double white = 255.0;
  ShownRange range{0.0, white};
  if (image.depth() != CV_8U && (std::isnan(settings.low) || std::isnan(settings.high))) {
    range = usualRange(image);
  }
  range.low = std::isnan(settings.low) ? range.low : settings.low;
  range.high = std::isnan(settings.high) ? range.high : settings.high;
  if (!std::isfinite(range.low) || !std::isfinite(range.high) || range.low >= range.high) {
    throw error("What is shown black, " + std::to_string(range.low) +
                    ", must be below what is shown white, " + std::to_string(range.high),
                "AMat");
  }
  return range;
}

cv::Mat shownImage(cv::Mat const& image, cv::Rect const& part, DrawSettings const& settings,
                   ShownRange const& range) {
  constexpr double white = 255.0;
  cv::Mat shown = image(part);
  if (settings.depth == DrawDepth::Eight &&
      (shown.depth() != CV_8U || range.low != 0.0 || range.high != white)) {
    double const scale = white / (range.high - range.low);
    cv::Mat stretched;
    shown.convertTo(stretched, CV_8U, scale, -range.low * scale);
    shown = stretched;
  }
  return zoomed(threeChannels(shown), settings.zoom);
}

} // namespace vorn::mv
