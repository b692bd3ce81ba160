// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// How the values of an image are sorted into bins.
struct HistogramSettings {
  /// 0: one a value for 8 and 16 bits, 1024 for other depths. At most 16777216.
  int bins = 0;
  /// Lower end of the first bin and upper end of the last. NaN: for 8 and 16 bits half a value outside the
  /// depth's range, so that each value stands in the middle of its bin; for other depths the image's least
  /// and greatest finite value.
  double low = std::numeric_limits<double>::quiet_NaN();
  /// Upper end of the last bin, as `low`.
  double high = std::numeric_limits<double>::quiet_NaN();
  /// CV_8UC1 of the image's size: pixels with 0 do not count; empty: all count.
  cv::Mat mask;
};

/// The values of one channel.
struct ChannelHistogram {
  std::vector<std::uint64_t> counts; ///< one a bin
  std::uint64_t below = 0;           ///< finite values under the first bin
  std::uint64_t above = 0;           ///< finite values over the last bin
  std::uint64_t notFinite = 0;       ///< NaN and infinite ones
  /// Of all finite values, in bins or not; NaN when there is none.
  double least = std::numeric_limits<double>::quiet_NaN();
  double greatest = std::numeric_limits<double>::quiet_NaN(); ///< as `least`
  double mean = std::numeric_limits<double>::quiet_NaN();     ///< as `least`
};

/// How often which values occur in an image.
struct VORN_API Histogram {
  double low = 0.0;                       ///< lower end of the first bin
  double high = 0.0;                      ///< upper end of the last
  std::vector<ChannelHistogram> channels; ///< of the image, in its order

  /// From one bin's lower end to the next one's, in the unit of the values; 0 without channels.
  double binWidth() const;
  /// The middle of a bin.
  double center(std::size_t bin) const;
  /// All finite values of a channel.
  /// @throws Exception when there is no such channel
  std::uint64_t total(std::size_t channel) const;
  /// How many finite values lie in each bin or lower, those below all bins included.
  /// @throws Exception when there is no such channel
  std::vector<std::uint64_t> cumulative(std::size_t channel) const;
  /// The value that a share of the finite values does not exceed: the middle of the bin that holds the value
  /// of rank ceil(share * total); `least` or `greatest` where that lies outside all bins. Exact where each
  /// value has its bin.
  /// @param share 0 to 1
  /// @throws Exception for another share, a channel that is not there or one without finite values
  double percentile(std::size_t channel, double share) const;
};

/// Counts the values of each channel. The same counts with any number of threads.
///
/// A value on the border of two bins counts in the upper one, on the upper end of all in the last.
/// Working memory: the counts, again for each thread.
/// @param image any depth but CV_16F, any channels, not empty
/// @throws Exception for an empty image, a mask of another size or type, a number of bins out of range, or
///         `low` not below `high`
VORN_API Histogram calcHistogram(cv::Mat const& image, HistogramSettings const& settings = {});

} // namespace vorn::mv
