// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/histogram.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "calcHistogram";
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
using Counts = std::vector<std::uint64_t>;

template <class T>
constexpr bool hasBinAValue = std::is_integral_v<T> && sizeof(T) <= 2;

/// Counts of all values of a type of 8 or 16 bits, of each channel.
template <class T>
class ValueCounts {
public:
  static constexpr std::size_t values = std::size_t{1} << (8 * sizeof(T));
  static constexpr int lowest = std::numeric_limits<T>::min();

  explicit ValueCounts(int channels) : counts(static_cast<std::size_t>(channels), Counts(values, 0)) {}

  void add(cv::Mat const& image, cv::Mat const& mask) {
    std::mutex merging;
    parallelRows(image.rows, [&](int begin, int end) {
      std::vector<std::vector<std::uint32_t>> part(counts.size(), std::vector<std::uint32_t>(values, 0));
      for (int y = begin; y < end; ++y) {
        addRow(image.ptr<T>(y), image.cols, mask.empty() ? nullptr : mask.ptr<uchar>(y), part);
      }
      std::lock_guard const lock(merging);
      for (std::size_t c = 0; c < counts.size(); ++c) {
        std::transform(part[c].begin(), part[c].end(), counts[c].begin(), counts[c].begin(),
                       [](std::uint64_t a, std::uint64_t b) { return a + b; });
      }
    });
  }

  std::vector<Counts> counts; ///< of value `lowest` first

private:
  static std::size_t place(T value) { return static_cast<std::size_t>(value - lowest); }

  static void addRow(T const* row, int columns, uchar const* mask,
                     std::vector<std::vector<std::uint32_t>>& part) {
    std::size_t const channels = part.size();
    auto const width = static_cast<std::size_t>(columns);
    for (std::size_t x = 0; x < width; ++x) {
      if (mask == nullptr || mask[x] != 0) {
        for (std::size_t c = 0; c < channels; ++c) {
          ++part[c][place(row[x * channels + c])];
        }
      }
    }
  }
};

/// Counts each byte of a word in a table of its own.
template <class Tables, std::size_t... table>
void countEach(Tables& tables, std::uint64_t bytes, std::index_sequence<table...> /*which*/) {
  (++tables[table][(bytes >> (8 * table)) & 0xFFU], ...);
}

/// One channel of bytes: neighbours are often equal, and one counter cannot be raised twice at once, so eight
/// tables take turns.
Counts countsOfBytes(cv::Mat const& image) {
  constexpr std::size_t values = 256;
  constexpr std::size_t tables = 8;
  Counts counts(values, 0);
  std::mutex merging;
  parallelRows(image.rows, [&](int begin, int end) {
    std::array<std::array<std::uint32_t, values>, tables> part{};
    for (int y = begin; y < end; ++y) {
      uchar const* row = image.ptr<uchar>(y);
      auto const width = static_cast<std::size_t>(image.cols);
      std::size_t x = 0;
      for (; x + tables <= width; x += tables) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, row + x, tables);
        countEach(part, eight, std::make_index_sequence<tables>());
      }
      for (; x < width; ++x) {
        ++part[0][row[x]];
      }
    }
    std::lock_guard const lock(merging);
    for (auto const& table : part) {
      std::transform(table.begin(), table.end(), counts.begin(), counts.begin(),
                     [](std::uint64_t a, std::uint64_t b) { return a + b; });
    }
  });
  return counts;
}

/// Sorts values with their counts into the bins of a histogram.
class Binning {
public:
  Binning(Histogram const& histogram, int bins)
      : low_(histogram.low), high_(histogram.high), perValue_(bins / (histogram.high - histogram.low)),
        bins_(static_cast<std::size_t>(bins)) {}

  void add(ChannelHistogram& channel, double value, std::uint64_t count) const {
    if (!std::isfinite(value)) {
      channel.notFinite += count;
    } else if (value < low_) {
      channel.below += count;
    } else if (value > high_) {
      channel.above += count;
    } else {
      channel.counts[std::min(static_cast<std::size_t>((value - low_) * perValue_), bins_ - 1)] += count;
    }
  }

private:
  double low_;
  double high_;
  double perValue_;
  std::size_t bins_;
};

/// The values of an image whose depth has few: counted by value first, then by bin.
template <class T>
void countValues(cv::Mat const& image, cv::Mat const& mask, int bins, Histogram& histogram) {
  ValueCounts<T> values(image.channels());
  if (std::is_same_v<T, uchar> && image.channels() == 1 && mask.empty()) {
    values.counts[0] = countsOfBytes(image);
  } else {
    values.add(image, mask);
  }
  Binning const binning(histogram, bins);
  for (std::size_t c = 0; c < values.counts.size(); ++c) {
    ChannelHistogram& channel = histogram.channels[c];
    double sum = 0.0;
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < values.counts[c].size(); ++i) {
      if (std::uint64_t const its = values.counts[c][i]; its > 0) {
        double const value = static_cast<double>(i) + ValueCounts<T>::lowest;
        binning.add(channel, value, its);
        channel.least = count == 0 ? value : channel.least;
        channel.greatest = value;
        sum += value * static_cast<double>(its);
        count += its;
      }
    }
    channel.mean = count == 0 ? notANumber : sum / static_cast<double>(count);
  }
}

/// Least, greatest and sum of the finite values of a row.
struct RowFigures {
  double least = std::numeric_limits<double>::infinity();
  double greatest = -std::numeric_limits<double>::infinity();
  double sum = 0.0;
  std::uint64_t count = 0;
};

/// Calls body(channel, value) for each value of a row that counts.
template <class T, class Body>
void forEachValue(cv::Mat const& image, cv::Mat const& mask, int y, Body const& body) {
  T const* row = image.ptr<T>(y);
  uchar const* valid = mask.empty() ? nullptr : mask.ptr<uchar>(y);
  auto const channels = static_cast<std::size_t>(image.channels());
  for (std::size_t x = 0; x < static_cast<std::size_t>(image.cols); ++x) {
    for (std::size_t c = 0; c < channels && (valid == nullptr || valid[x] != 0); ++c) {
      body(c, static_cast<double>(row[x * channels + c]));
    }
  }
}

template <class T>
void measureRange(cv::Mat const& image, cv::Mat const& mask, Histogram& histogram) {
  std::size_t const channels = histogram.channels.size();
  std::vector<RowFigures> rows(static_cast<std::size_t>(image.rows) * channels);
  parallelRows(image.rows, [&](int begin, int end) {
    for (int y = begin; y < end; ++y) {
      RowFigures* figures = rows.data() + static_cast<std::size_t>(y) * channels;
      forEachValue<T>(image, mask, y, [&](std::size_t c, double value) {
        if (std::isfinite(value)) {
          figures[c].least = std::min(figures[c].least, value);
          figures[c].greatest = std::max(figures[c].greatest, value);
          figures[c].sum += value;
          ++figures[c].count;
        }
      });
    }
  });
  for (std::size_t c = 0; c < channels; ++c) {
    RowFigures all;
    for (std::size_t y = c; y < rows.size(); y += channels) {
      all.least = std::min(all.least, rows[y].least);
      all.greatest = std::max(all.greatest, rows[y].greatest);
      all.sum += rows[y].sum;
      all.count += rows[y].count;
    }
    if (all.count > 0) {
      histogram.channels[c].least = all.least;
      histogram.channels[c].greatest = all.greatest;
      histogram.channels[c].mean = all.sum / static_cast<double>(all.count);
    }
  }
}

template <class T>
void countBins(cv::Mat const& image, cv::Mat const& mask, int bins, Histogram& histogram) {
  Binning const binning(histogram, bins);
  std::mutex merging;
  parallelRows(image.rows, [&](int begin, int end) {
    std::vector<ChannelHistogram> part(histogram.channels.size());
    for (ChannelHistogram& channel : part) {
      channel.counts.assign(static_cast<std::size_t>(bins), 0);
    }
    for (int y = begin; y < end; ++y) {
      forEachValue<T>(image, mask, y, [&](std::size_t c, double value) { binning.add(part[c], value, 1); });
    }
    std::lock_guard const lock(merging);
    for (std::size_t c = 0; c < part.size(); ++c) {
      ChannelHistogram& channel = histogram.channels[c];
      channel.below += part[c].below;
      channel.above += part[c].above;
      channel.notFinite += part[c].notFinite;
      std::transform(part[c].counts.begin(), part[c].counts.end(), channel.counts.begin(),
                     channel.counts.begin(), std::plus<>());
    }
  });
}

void check(cv::Mat const& image, HistogramSettings const& settings) {
  constexpr int mostBins = 1 << 24;
  if (image.empty()) {
    throw error("The image is empty", function);
  }
  if (image.dims > 2 || image.depth() > CV_64F) {
    throw error("The image must have two dimensions and a depth of 8, 16 or 32 bits or double", function);
  }
  if (!settings.mask.empty() && (settings.mask.size() != image.size() || settings.mask.type() != CV_8UC1)) {
    throw error("The mask must be CV_8UC1 and as large as the image", function);
  }
  if (settings.bins < 0 || settings.bins > mostBins) {
    throw error("The number of bins must be 0 to " + std::to_string(mostBins) + ", not " +
                    std::to_string(settings.bins),
                function);
  }
  if (std::isinf(settings.low) || std::isinf(settings.high) || settings.low >= settings.high) {
    throw error("The histogram's low end, " + std::to_string(settings.low) +
                    ", must be below its high end, " + std::to_string(settings.high),
                function);
  }
}

/// The ends that the settings leave open, from the least and greatest value.
void setRange(Histogram& histogram, HistogramSettings const& settings, double least, double greatest) {
  histogram.low = std::isnan(settings.low) ? least : settings.low;
  histogram.high = std::isnan(settings.high) ? greatest : settings.high;
  if (!(histogram.low < histogram.high)) { // one value alone, none, or all beyond the end that is given
    double const room = std::max(0.5, std::abs(histogram.low) * 1e-6);
    if (std::isnan(settings.high)) {
      histogram.high = histogram.low + room;
    }
    histogram.low = std::isnan(settings.low) ? histogram.high - 2.0 * room : settings.low;
  }
}

template <class T>
void fill(cv::Mat const& image, HistogramSettings const& settings, Histogram& histogram) {
  constexpr int binsOfMany = 1024;
  int bins = settings.bins;
  if constexpr (hasBinAValue<T>) {
    constexpr double half = 0.5;
    setRange(histogram, settings, std::numeric_limits<T>::min() - half, std::numeric_limits<T>::max() + half);
    bins = bins > 0 ? bins : static_cast<int>(ValueCounts<T>::values);
  } else {
    measureRange<T>(image, settings.mask, histogram);
    double least = std::numeric_limits<double>::infinity();
    double greatest = -least;
    for (ChannelHistogram const& channel : histogram.channels) {
      least = std::fmin(least, channel.least);
      greatest = std::fmax(greatest, channel.greatest);
    }
    bool const isAny = least <= greatest;
    setRange(histogram, settings, isAny ? least : 0.0, isAny ? greatest : 1.0);
    bins = bins > 0 ? bins : binsOfMany;
  }
  for (ChannelHistogram& channel : histogram.channels) {
    channel.counts.assign(static_cast<std::size_t>(bins), 0);
  }
  if constexpr (hasBinAValue<T>) {
    countValues<T>(image, settings.mask, bins, histogram);
  } else {
    countBins<T>(image, settings.mask, bins, histogram);
  }
}

ChannelHistogram const& channelOf(Histogram const& histogram, std::size_t channel) {
  if (channel >= histogram.channels.size()) {
    throw error("There is no channel " + std::to_string(channel) + " among " +
                    std::to_string(histogram.channels.size()),
                "Histogram");
  }
  return histogram.channels[channel];
}

} // namespace

double Histogram::binWidth() const {
  return channels.empty() ? 0.0 : (high - low) / static_cast<double>(channels.front().counts.size());
}

double Histogram::center(std::size_t bin) const {
  constexpr double half = 0.5;
  return low + (static_cast<double>(bin) + half) * binWidth();
}

std::uint64_t Histogram::total(std::size_t channel) const {
  return cumulative(channel).back() + channelOf(*this, channel).above;
}

std::vector<std::uint64_t> Histogram::cumulative(std::size_t channel) const {
  ChannelHistogram const& its = channelOf(*this, channel);
  Counts sums;
  sums.reserve(its.counts.size());
  std::uint64_t sum = its.below;
  for (std::uint64_t const count : its.counts) {
    sums.push_back(sum += count);
  }
  return sums;
}

double Histogram::percentile(std::size_t channel, double share) const {
  ChannelHistogram const& its = channelOf(*this, channel);
  std::uint64_t const all = total(channel);
  if (!(share >= 0.0 && share <= 1.0)) {
    throw error("A share must be 0 to 1, not " + std::to_string(share), "Histogram");
  }
  if (all == 0) {
    throw error("Channel " + std::to_string(channel) + " has no finite value", "Histogram");
  }
  auto const rank =
      std::max<std::uint64_t>(1, static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(all))));
  if (rank <= its.below) {
    return its.least;
  }
  Counts const sums = cumulative(channel);
  auto const bin = std::lower_bound(sums.begin(), sums.end(), rank);
  return bin == sums.end() ? its.greatest : center(static_cast<std::size_t>(bin - sums.begin()));
}

Histogram calcHistogram(cv::Mat const& image, HistogramSettings const& settings) {
  check(image, settings);
  Histogram histogram;
  histogram.channels.resize(static_cast<std::size_t>(image.channels()));
  switch (image.depth()) {
  case CV_8U:
    fill<uchar>(image, settings, histogram);
    break;
  case CV_8S:
    fill<schar>(image, settings, histogram);
    break;
  case CV_16U:
    fill<ushort>(image, settings, histogram);
    break;
  case CV_16S:
    fill<short>(image, settings, histogram);
    break;
  case CV_32S:
    fill<int>(image, settings, histogram);
    break;
  case CV_32F:
    fill<float>(image, settings, histogram);
    break;
  default:
    fill<double>(image, settings, histogram);
    break;
  }
  return histogram;
}

} // namespace vorn::mv
