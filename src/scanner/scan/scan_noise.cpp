// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/scan_noise.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace vorn::mv {

namespace {

constexpr int bandRows = 128;

/// A row of the four phase images, of pixels of type T.
template <class T>
struct PhaseRow {
  T const* p[4];

  PhaseRow(std::vector<cv::Mat> const& images, int y)
      : p{images[0].ptr<T>(y), images[1].ptr<T>(y), images[2].ptr<T>(y), images[3].ptr<T>(y)} {}

  float level(int x) const { return 0.25F * static_cast<float>(p[0][x] + p[1][x] + p[2][x] + p[3][x]); }
  /// Zero for a sinusoid; its noise is twice that of an image.
  int excess(int x) const { return p[0][x] - p[1][x] + p[2][x] - p[3][x]; }
  float amplitude(int x) const {
    auto const sine = static_cast<float>(p[0][x] - p[2][x]);
    auto const cosine = static_cast<float>(p[1][x] - p[3][x]);
    return 0.5F * std::sqrt(sine * sine + cosine * cosine);
  }
};

/// Calls `each(PhaseRow)` with a row of the stack as it is stored.
template <class Each>
void withRow(sl::GreyStack const& stack, int y, Each const& each) {
  if (stack.images[0].depth() == CV_8U) {
    each(PhaseRow<std::uint8_t>(stack.images, y));
  } else {
    each(PhaseRow<std::uint16_t>(stack.images, y));
  }
}

/// How often each absolute excess occurs.
struct Excesses {
  std::vector<std::uint32_t> counts;
  std::size_t total = 0;

  /// @param white of the images: greater excesses than twice of it count as that
  explicit Excesses(int white) : counts(2 * static_cast<std::size_t>(white) + 1) {}

  void add(std::size_t excess) {
    ++counts[std::min(excess, counts.size() - 1)];
    ++total;
  }

  /// A whole number stands for all values that are rounded to it, so the median lies between numbers.
  double median() const {
    double const half = 0.5 * static_cast<double>(total);
    double below = 0.0;
    for (std::size_t v = 0; v < counts.size(); ++v) {
      auto const count = static_cast<double>(counts[v]);
      if (below + count >= half && count > 0.0) {
        double const share = (half - below) / count;
        auto const value = static_cast<double>(v);
        return v == 0 ? 0.5 * share : value - 0.5 + share;
      }
      below += count;
    }
    return 0.0;
  }
};

/// The standard deviation of an image from the median of absolute excesses, for a normal distribution.
float noiseOf(Excesses const& excesses) {
  constexpr double medianOfNormal = 0.674489750196082;
  constexpr double excessOverNoise = 2.0;
  // Rounding to whole grey levels alone.
  constexpr double least = 0.288675134594813;
  return static_cast<float>(std::max(least, excesses.median() / (medianOfNormal * excessOverNoise)));
}

} // namespace

NoiseModel::NoiseModel(double noise, sl::GreyStack const& stack) : binsPerLevel_(binsPerLevel(stack)) {
  byLevel_.fill(static_cast<float>(noise / stack.unit));
}

NoiseModel::NoiseModel(sl::GreyStack const& stack, cv::Mat_<float> const& map, Progress const& progress)
    : binsPerLevel_(binsPerLevel(stack)) {
  std::vector<Excesses> bins(binCount, Excesses(stack.white));
  Excesses all(stack.white);
  constexpr int rowStep = 4; // a quarter of the pixels is plenty
  for (int y = 0; y < map.rows; y += rowStep) {
    if (y % bandRows == 0) {
      progress.at("estimating the noise", static_cast<double>(y) / map.rows);
    }
    withRow(stack, y, [&](auto const& row) {
      for (int x = 0; x < map.cols; ++x) {
        if (map(y, x) >= 0.0F) {
          auto const excess = static_cast<std::size_t>(std::abs(row.excess(x)));
          bins[binOf(row.level(x))].add(excess);
          all.add(excess);
        }
      }
    });
  }
  constexpr std::size_t fewest = 500;
  for (std::size_t i = 0; i < binCount; ++i) {
    byLevel_[i] = noiseOf(bins[i].total >= fewest ? bins[i] : all);
  }
}

cv::Mat_<float> modulationOf(sl::GreyStack const& stack, Progress const& progress) {
  cv::Mat_<float> modulation(stack.images[0].size());
  auto const unit = static_cast<float>(stack.unit);
  parallelRows(modulation.rows, bandRows, progress, "measuring the modulation",
               [&](int firstRow, int endRow) {
                 for (int y = firstRow; y < endRow; ++y) {
                   float* const out = modulation[y];
                   withRow(stack, y, [&](auto const& row) {
                     for (int x = 0; x < modulation.cols; ++x) {
                       out[x] = unit * row.amplitude(x);
                     }
                   });
                 }
               });
  return modulation;
}

cv::Mat_<float> sigmaOf(sl::GreyStack const& stack, cv::Mat_<float> const& map, NoiseModel const& noise,
                        int period, Progress const& progress) {
  cv::Mat_<float> sigma(map.size());
  auto const pixelsPerRadian = static_cast<float>(period / (2.0 * CV_PI * std::sqrt(2.0)));
  parallelRows(map.rows, bandRows, progress, "estimating the noise", [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      withRow(stack, y, [&](auto const& row) {
        for (int x = 0; x < map.cols; ++x) {
          sigma(y, x) = map(y, x) >= 0.0F ? pixelsPerRadian * noise.at(row.level(x)) / row.amplitude(x)
                                          : std::numeric_limits<float>::quiet_NaN();
        }
      });
    }
  });
  return sigma;
}

} // namespace vorn::mv
