// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/white_level.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

constexpr unsigned widest = 65535;

/// Pixels that are always bright, or that filters made brighter than white, tell nothing of the range: one in
/// so many, and no more than a few.
constexpr std::size_t onePixelIn = 100000;
constexpr std::size_t fewPixels = 20;

/// The greatest value, and all values joined bit by bit.
struct Values {
  unsigned most = 0;
  unsigned bits = 0;
};

/// @param highest values above are left out
VORN_TARGET_CLONES
Values valuesOfRow(std::uint16_t const* row, int n, std::uint16_t highest) {
  std::uint16_t most = 0;
  std::uint16_t bits = 0;
  for (int x = 0; x < n; ++x) {
    auto const value = static_cast<std::uint16_t>(row[x] <= highest ? row[x] : 0);
    most = std::max(most, value);
    bits = static_cast<std::uint16_t>(bits | value);
  }
  return {most, bits};
}

Values valuesOf(cv::Mat const& image, std::uint16_t highest) {
  Values all;
  std::mutex joining;
  parallelRows(image.rows, [&](int firstRow, int endRow) {
    Values own;
    for (int y = firstRow; y < endRow; ++y) {
      Values const row = valuesOfRow(image.ptr<std::uint16_t>(y), image.cols * image.channels(), highest);
      own.most = std::max(own.most, row.most);
      own.bits |= row.bits;
    }
    std::lock_guard<std::mutex> const lock(joining);
    all.most = std::max(all.most, own.most);
    all.bits |= own.bits;
  });
  return all;
}

Values valuesOf(std::vector<cv::Mat> const& images, unsigned highest) {
  Values all;
  for (cv::Mat const& image : images) {
    Values const own = valuesOf(image, static_cast<std::uint16_t>(highest));
    all.most = std::max(all.most, own.most);
    all.bits |= own.bits;
  }
  return all;
}

/// Whether one of the images has more than a few pixels above a value.
template <class T>
bool isOftenAbove(std::vector<cv::Mat> const& images, double value) {
  for (cv::Mat const& image : images) {
    std::size_t const few = std::min(fewPixels, image.total() / onePixelIn);
    std::size_t above = 0;
    for (int y = 0; y < image.rows; ++y) {
      T const* const row = image.ptr<T>(y);
      for (int x = 0; x < image.cols * image.channels(); ++x) {
        auto const own = static_cast<double>(row[x]);
        above += own > value && std::isfinite(own) ? 1U : 0U;
      }
      if (above > few) {
        return true;
      }
    }
  }
  return false;
}

constexpr double ends[] = {255, 1023, 4095, 16383, 65535};

/// The end of the range of whole numbers that a sensor's analogue-to-digital converter gives, which holds all
/// values but a few pixels'; `most` beyond the last.
template <class T>
double endOfRange(std::vector<cv::Mat> const& images, double most) {
  for (double const end : ends) {
    if (most <= end || !isOftenAbove<T>(images, end)) {
      return end;
    }
  }
  return most;
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
  Values all = valuesOf(images, widest);
  if (all.most == 0) {
    return widest;
  }
  double const range = endOfRange<std::uint16_t>(images, all.most);
  if (range < all.most) {
    all = valuesOf(images, static_cast<unsigned>(range));
  }
  unsigned const step = all.bits & (~all.bits + 1U); // the lowest bit that any value has
  double const end = range + 1.0 - std::max(1U, step);
  return isPiledUp<std::uint16_t>(images, all.most, end) ? all.most : end;
}

/// The greatest value that is not above `highest`.
double mostOf(std::vector<cv::Mat> const& images, double highest) {
  double most = 0;
  for (cv::Mat const& image : images) {
    for (int y = 0; y < image.rows; ++y) {
      float const* const row = image.ptr<float>(y);
      for (int x = 0; x < image.cols * image.channels(); ++x) {
        double const value = row[x];
        most = value <= highest ? std::max(most, value) : most;
      }
    }
  }
  return most;
}

double whiteOfReals(std::vector<cv::Mat> const& images) {
  constexpr double aboveOne = 1.1; // as what was undistorted or divided by a flat field
  std::vector<cv::Mat> singles;
  for (cv::Mat const& image : images) {
    cv::Mat single = image;
    if (image.depth() != CV_32F) {
      image.convertTo(single, CV_32F);
    }
    singles.push_back(single);
  }
  double const most = mostOf(singles, std::numeric_limits<float>::max());
  bool const isOne = most <= aboveOne || !isOftenAbove<float>(singles, aboveOne);
  double const end = isOne ? 1.0 : endOfRange<float>(singles, most);
  double const within = end < most ? mostOf(singles, end) : most;
  return isPiledUp<float>(singles, within, end) ? within : end;
}

} // namespace

double findWhiteLevel(std::vector<cv::Mat> const& images) {
  if (images.empty()) {
    return 0;
  }
  constexpr double ofBytes = 255;
  int const depth = images[0].depth();
  for (cv::Mat const& image : images) {
    bool const isKnown = depth == CV_8U || depth == CV_16U || depth == CV_32F || depth == CV_64F;
    if (!isKnown || image.depth() != depth) {
      throw error("The white level is found in images of one depth, 8 or 16 bits or real numbers; here are " +
                      cv::typeToString(images[0].type()) + " and " + cv::typeToString(image.type()),
                  "findWhiteLevel");
    }
  }
  return depth == CV_8U ? ofBytes : depth == CV_16U ? whiteOfWords(images) : whiteOfReals(images);
}

} // namespace vorn::mv
