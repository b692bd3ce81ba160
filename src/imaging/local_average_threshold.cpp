// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "imaging/local_average_threshold.hpp"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

/// Sums of 2R pixels of a row fit 16 bits for every radius; those of whole windows up to this one.
constexpr int largestNarrowRadius = 8;
/// Columns that are worked on at a time, so that the sums stay in the first-level cache.
constexpr int chunkColumns = 1024;
/// Rows of a band per row of the 2R that it sums in advance: bounds that extra work to a sixteenth.
constexpr int bandRowsPerHaloRow = 16;

/// sums[i] = pixels[i] + ... + pixels[i + 2R - 1], for i in [0, count).
///
/// By doubling: sums of 2, 4, 8, ... pixels, of which the binary digits of R say which ones make up 2R. Every
/// step is a plain sum of two rows, which vectorises, and there are at most twice as many as R has digits.
/// @param pixels  count + 2R - 1 of them
/// @param scratch room for count + 2R - 2
VORN_ALWAYS_INLINE void sumAlongRow(uchar const* pixels, int count, int radius,
                                    std::uint16_t* __restrict scratch, std::uint16_t* __restrict sums) {
  int length = count + 2 * radius - 2;
  for (int i = 0; i < length; ++i) {
    scratch[i] = static_cast<std::uint16_t>(pixels[i] + pixels[i + 1]);
  }
  int width = 2;  // of the sums in `scratch`
  int summed = 0; // pixels that are in `sums`
  for (int digits = radius;; digits >>= 1) {
    if ((digits & 1) != 0 && summed == 0) {
      std::copy(scratch, scratch + count, sums);
      summed = width;
    } else if ((digits & 1) != 0) {
      for (int i = 0; i < count; ++i) {
        sums[i] = static_cast<std::uint16_t>(sums[i] + scratch[i + summed]);
      }
      summed += width;
    }
    if (digits == 1) {
      return;
    }
    length -= width;
    for (int i = 0; i < length; ++i) {
      scratch[i] = static_cast<std::uint16_t>(scratch[i] + scratch[i + width]);
    }
    width *= 2;
  }
}

/// Thresholds the pixels that have a whole window, in the rows [firstRow, endRow).
///
/// Walks down the image with the window sums of one row: the row that enters the windows is added, the one
/// that leaves them, kept since it entered, is taken away.
/// @tparam Sum an unsigned type that holds the sum of a window
template <class Sum>
VORN_ALWAYS_INLINE void thresholdBand(cv::Mat const& input, LocalAverageThreshold const& rule, int firstRow,
                                      int endRow, cv::Mat& output) {
  int const radius = rule.radius;
  int const denominator = 400 * radius * radius;
  int const columns = input.cols - 2 * radius - 1;
  int const windowRows = 2 * radius;
  std::vector<std::uint16_t> rowSums(static_cast<std::size_t>(windowRows) * columns);
  std::vector<Sum> windowSums(static_cast<std::size_t>(columns));
  std::vector<std::uint16_t> scratch(static_cast<std::size_t>(chunkColumns + 2 * radius));
  std::vector<std::uint16_t> entering(static_cast<std::size_t>(chunkColumns));

  for (int enteringRow = firstRow - radius + 1; enteringRow < endRow + radius; ++enteringRow) {
    int const row = enteringRow - radius;
    std::size_t const slot = static_cast<std::size_t>(enteringRow % windowRows) * columns;
    for (int start = 0; start < columns; start += chunkColumns) {
      int const count = std::min(chunkColumns, columns - start);
      sumAlongRow(input.ptr(enteringRow) + 2 + start, count, radius, scratch.data(), entering.data());
      std::uint16_t const* __restrict added = entering.data();
      std::uint16_t* __restrict leaving = rowSums.data() + slot + start;
      Sum* __restrict sums = windowSums.data() + start;
      for (int i = 0; i < count; ++i) {
        sums[i] = static_cast<Sum>(sums[i] + added[i] - leaving[i]);
        leaving[i] = added[i];
      }
      if (row < firstRow) {
        continue;
      }
      uchar const* __restrict values = input.ptr(row) + radius + 1 + start;
      uchar* __restrict results = output.ptr(row) + radius + 1 + start;
      for (int i = 0; i < count; ++i) {
        bool const passes = reachesPart(values[i], static_cast<int>(sums[i]), rule.percent, denominator);
        results[i] = passes ? rule.passValue : rule.failValue;
      }
    }
  }
}

VORN_TARGET_CLONES void thresholdNarrowBand(cv::Mat const& input, LocalAverageThreshold const& rule,
                                            int firstRow, int endRow, cv::Mat& output) {
  thresholdBand<std::uint16_t>(input, rule, firstRow, endRow, output);
}

VORN_TARGET_CLONES void thresholdWideBand(cv::Mat const& input, LocalAverageThreshold const& rule,
                                          int firstRow, int endRow, cv::Mat& output) {
  thresholdBand<std::uint32_t>(input, rule, firstRow, endRow, output);
}

/// Copies the pixels of a row that have no whole window.
void copySides(cv::Mat const& input, int radius, int row, cv::Mat& output) {
  uchar const* const from = input.ptr(row);
  uchar* const to = output.ptr(row);
  std::copy(from, from + radius + 1, to);
  std::copy(from + input.cols - radius, from + input.cols, to + input.cols - radius);
}

} // namespace

void localAverageThreshold(cv::Mat const& input, LocalAverageThreshold const& rule, cv::Mat& output) {
  int const radius = rule.radius;
  int const rows = input.rows - 2 * radius - 1;
  int const columns = input.cols - 2 * radius - 1;
  if (rows <= 0 || columns <= 0) {
    input.copyTo(output);
    return;
  }
  output.create(input.size(), CV_8U);
  input.rowRange(0, radius + 1).copyTo(output.rowRange(0, radius + 1));
  input.rowRange(input.rows - radius, input.rows).copyTo(output.rowRange(input.rows - radius, input.rows));

  int const bands = std::clamp(rows / (bandRowsPerHaloRow * 2 * radius), 1, 4 * cv::getNumThreads());
  parallelRows(bands, [&](int firstBand, int endBand) {
    int const firstRow = radius + 1 + static_cast<int>(std::int64_t(rows) * firstBand / bands);
    int const endRow = radius + 1 + static_cast<int>(std::int64_t(rows) * endBand / bands);
    for (int row = firstRow; row < endRow; ++row) {
      copySides(input, radius, row, output);
    }
    if (radius <= largestNarrowRadius) {
      thresholdNarrowBand(input, rule, firstRow, endRow, output);
    } else {
      thresholdWideBand(input, rule, firstRow, endRow, output);
    }
  });
}

} // namespace vorn::mv
