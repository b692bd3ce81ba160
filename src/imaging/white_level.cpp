// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "imaging/white_level.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

constexpr unsigned widest = 65535;

/// The greatest value, and all values joined bit by bit.
struct Values {
  unsigned most = 0;
  unsigned bits = 0;
};

VORN_TARGET_CLONES
Values valuesOfRow(std::uint16_t const* row, int n) {
  std::uint16_t most = 0;
  std::uint16_t bits = 0;
  for (int x = 0; x < n; ++x) {
    most = std::max(most, row[x]);
    bits = static_cast<std::uint16_t>(bits | row[x]);
  }
  return {most, bits};
}

Values valuesOf(cv::Mat const& image) {
  Values all;
  std::mutex joining;
  parallelRows(image.rows, [&](int firstRow, int endRow) {
    Values own;
    for (int y = firstRow; y < endRow; ++y) {
      Values const row = valuesOfRow(image.ptr<std::uint16_t>(y), image.cols * image.channels());
      own.most = std::max(own.most, row.most);
      own.bits |= row.bits;
    }
    std::lock_guard<std::mutex> const lock(joining);
    all.most = std::max(all.most, own.most);
    all.bits |= own.bits;
  });
  return all;
}

/// The end of the range of whole numbers that a sensor's analogue-to-digital converter gives.
double endOfRange(double most) {
  constexpr double ends[] = {255, 1023, 4095, 16383, 65535};
  auto const* const end = std::lower_bound(std::begin(ends), std::end(ends), most);
  return end != std::end(ends) ? *end : most;
}

/// Whether pixels pile up at the greatest value: in the picture of a lit scene ever fewer have the higher
/// ones, and those of clipped pixels are all the same.
template <class T>
bool isPiledUp(std::vector<cv::Mat> const& images, double most, double end) {
  constexpr double nearEnd = 0.9; // a sensor that is full below is not one of this range
  if (most >= end || most < nearEnd * end) {
    return false;
  }
  constexpr double bandWidth = 1.0 / 64.0; // of the range
  auto const top = static_cast<T>(most);
  auto const from = static_cast<T>(most - bandWidth * end);
  std::size_t atTop = 0;
  std::size_t inBand = 0;
  for (cv::Mat const& image : images) {
    for (int y = 0; y < image.rows; ++y) {
      T const* const row = image.ptr<T>(y);
      for (int x = 0; x < image.cols * image.channels(); ++x) {
        atTop += row[x] == top ? 1U : 0U;
        inBand += row[x] >= from && row[x] < top ? 1U : 0U;
      }
    }
  }
  constexpr std::size_t fewest = 100;
  return atTop >= fewest && atTop > inBand;
}

double whiteOfWords(std::vector<cv::Mat> const& images) {
  Values all;
  for (cv::Mat const& image : images) {
    Values const own = valuesOf(image);
    all.most = std::max(all.most, own.most);
    all.bits |= own.bits;
  }
  if (all.most == 0) {
    return widest;
  }
  unsigned const step = all.bits & (~all.bits + 1U); // the lowest bit that any value has
  double const end = endOfRange(all.most) + 1.0 - step;
  return isPiledUp<std::uint16_t>(images, all.most, end) ? all.most : end;
}

double whiteOfReals(std::vector<cv::Mat> const& images) {
  std::vector<cv::Mat> singles;
  double most = 0;
  for (cv::Mat const& image : images) {
    cv::Mat single;
    image.convertTo(single, CV_32F);
    for (int y = 0; y < single.rows; ++y) {
      float const* const row = single.ptr<float>(y);
      for (int x = 0; x < single.cols * single.channels(); ++x) {
        double const value = row[x];
        most = std::isfinite(value) ? std::max(most, value) : most;
      }
    }
    singles.push_back(single);
  }
  double const end = most <= 1.0 ? 1.0 : endOfRange(most);
  return isPiledUp<float>(singles, most, end) ? most : end;
}

} // namespace

double findWhiteLevel(std::vector<cv::Mat> const& images) {
  if (images.empty()) {
    return 0;
  }
  constexpr double ofBytes = 255;
  int const depth = images[0].depth();
  return depth == CV_8U ? ofBytes : depth == CV_16U ? whiteOfWords(images) : whiteOfReals(images);
}

} // namespace vorn::mv
