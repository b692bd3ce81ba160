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
    bool isOneValue = true;
    for (std::size_t c = 0; c < std::min<std::size_t>(histogram.channels.size(), 3); ++c) {
      if (histogram.total(c) > 0) {
        low = std::min(low, histogram.percentile(c, share));
        high = std::max(high, histogram.percentile(c, 1.0 - share));
        isOneValue = isOneValue && histogram.channels[c].least == histogram.channels[c].greatest;
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
    bool const isNarrowest = isOneValue || !(settings.low < low) || !(high < settings.high);
    if (isNarrowest || image.depth() < CV_32S ||
        settings.high - settings.low > enough * (histogram.high - histogram.low)) {
      break;
    }
  }
  return range;
}

void inThreeChannels(cv::Mat const& image, cv::Mat& color) {
  if (image.channels() == 3) {
    image.copyTo(color);
    return;
  }
  if (image.channels() == 1 && image.depth() == CV_8U) {
    cv::cvtColor(image, color, cv::COLOR_GRAY2BGR);
    return;
  }
  color.create(image.size(), CV_MAKETYPE(image.depth(), 3));
  bool const isGray = image.channels() == 1;
  int const pairs[] = {0, 0, isGray ? 0 : 1, 1, isGray ? 0 : 2, 2};
  cv::mixChannels(&image, 1, &color, 1, pairs, 3);
}

void zoomed(cv::Mat const& image, double zoom, cv::Mat& result) {
  cv::Size const size = shownSize(image.size(), zoom);
  if (zoom > 1.0) {
    cv::resize(image, result, size, 0, 0, cv::INTER_NEAREST);
    return;
  }
  bool const isResizable = image.depth() != CV_8S && image.depth() != CV_32S;
  if (isResizable) {
    cv::resize(image, result, size, 0, 0, cv::INTER_AREA);
    return;
  }
  cv::Mat source;
  image.convertTo(source, CV_64F);
  cv::Mat averages;
  cv::resize(source, averages, size, 0, 0, cv::INTER_AREA);
  averages.convertTo(result, image.depth());
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

cv::Size shownSize(cv::Size part, double zoom) {
  return {std::max(1, cvRound(part.width * zoom)), std::max(1, cvRound(part.height * zoom))};
}

void shownImage(cv::Mat const& image, cv::Rect const& part, DrawSettings const& settings,
                ShownRange const& range, cv::Mat& shown) {
  constexpr double white = 255.0;
  cv::Mat source = image(part);
  if (settings.depth == DrawDepth::Eight &&
      (source.depth() != CV_8U || range.low != 0.0 || range.high != white)) {
    double const scale = white / (range.high - range.low);
    cv::Mat stretched;
    source.convertTo(stretched, CV_8U, scale, -range.low * scale);
    source = stretched;
  }
  if (settings.zoom == 1.0) {
    inThreeChannels(source, shown);
    return;
  }
  cv::Mat color;
  inThreeChannels(source, color);
  zoomed(color, settings.zoom, shown);
}

} // namespace vorn::mv
