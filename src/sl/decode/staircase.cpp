// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/staircase.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "core/parallel.hpp"

namespace vorn::mv::sl {

namespace {

constexpr std::size_t harmonics = 4;

/// Pixels of a tile in which the staircase is taken to be the same.
constexpr int tileSize = 96;
constexpr double fewest = 1000.0; ///< coordinates in a tile of its own

/// The mean cosines of the fractions.
using Spread = cv::Vec<double, static_cast<int>(harmonics)>;

struct Sums {
  std::array<double, harmonics> cosines{};
  std::array<double, harmonics> sines{};
  double count = 0.0;

  void add(Sums const& other) {
    for (std::size_t m = 0; m < harmonics; ++m) {
      cosines[m] += other.cosines[m];
      sines[m] += other.sines[m];
    }
    count += other.count;
  }

  Spread spread() const {
    Spread means;
    for (std::size_t m = 0; m < harmonics; ++m) {
      means[static_cast<int>(m)] = cosines[m] / count;
    }
    return means;
  }

  /// Whether the fractions are spread as stairs spread them.
  bool isStair() const {
    if (count < fewest) {
      return false;
    }
    // What is left over of pixels at the borders, and what bare pixels would make.
    constexpr double leftOver = 0.03;
    constexpr double share = 0.15;
    constexpr double most = 0.8;
    double largest = 0.0;
    double odd = 0.0;
    for (std::size_t m = 0; m < harmonics; ++m) {
      largest = std::max(largest, std::fabs(cosines[m]) / count);
      odd = std::max(odd, std::fabs(sines[m]) / count);
    }
    constexpr double least = 0.02;
    bool const isClear = largest > least + 3.0 / std::sqrt(2.0 * count);
    return isClear && largest < most && odd <= leftOver + share * largest;
  }
};

Sums sumsOf(cv::Mat_<float> const& coordinates, cv::Rect const& tile) {
  Sums sums;
  for (int y = tile.y; y < tile.y + tile.height; ++y) {
    for (int x = tile.x; x < tile.x + tile.width; ++x) {
      float const c = coordinates(y, x);
      if (!(c >= 0.0F)) {
        continue;
      }
      auto const angle = 2.0 * CV_PI * static_cast<double>(c - std::floor(c));
      double const cosine = std::cos(angle);
      double const sine = std::sin(angle);
      double a = 1.0;
      double b = 0.0;
      for (std::size_t m = 0; m < harmonics; ++m) {
        double const next = a * cosine - b * sine;
        b = a * sine + b * cosine;
        a = next;
        sums.cosines[m] += a;
        sums.sines[m] += b;
      }
      sums.count += 1.0;
    }
  }
  return sums;
}

/// The spreads of all tiles; those that tell nothing of themselves have that of all. Returns whether there
/// are stairs at all.
bool findSpreads(cv::Mat_<float> const& coordinates, cv::Mat_<Spread>& spreads, Spread& ofAll,
                 Progress const& progress) {
  int const columns = (coordinates.cols + tileSize - 1) / tileSize;
  int const rows = (coordinates.rows + tileSize - 1) / tileSize;
  std::vector<Sums> sums(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  parallelRows(rows, 1, progress, "straightening", [&](int first, int end) {
    for (int j = first; j < end; ++j) {
      for (int i = 0; i < columns; ++i) {
        cv::Rect const tile =
            cv::Rect(i * tileSize, j * tileSize, tileSize, tileSize) & cv::Rect({0, 0}, coordinates.size());
        sums[static_cast<std::size_t>(j * columns + i)] = sumsOf(coordinates, tile);
      }
    }
  });
  Sums all;
  for (Sums const& tile : sums) {
    all.add(tile);
  }
  if (!all.isStair()) {
    return false;
  }
  ofAll = all.spread();
  spreads.create(rows, columns);
  for (std::size_t i = 0; i < sums.size(); ++i) {
    spreads(static_cast<int>(i) / columns, static_cast<int>(i) % columns) =
        sums[i].isStair() ? sums[i].spread() : ofAll;
  }
  return true;
}

/// Between the middles of tiles.
Spread spreadAt(cv::Mat_<Spread> const& spreads, int y, int x) {
  double const v = std::clamp((y + 0.5) / tileSize - 0.5, 0.0, spreads.rows - 1.0);
  double const u = std::clamp((x + 0.5) / tileSize - 0.5, 0.0, spreads.cols - 1.0);
  int const j = static_cast<int>(v);
  int const i = static_cast<int>(u);
  int const below = std::min(j + 1, spreads.rows - 1);
  int const right = std::min(i + 1, spreads.cols - 1);
  double const s = v - j;
  double const t = u - i;
  return (1.0 - s) * ((1.0 - t) * spreads(j, i) + t * spreads(j, right)) +
         s * ((1.0 - t) * spreads(below, i) + t * spreads(below, right));
}

/// What is to be added to a coordinate, and how much errors of it grow by that.
struct Correction {
  double shift = 0.0;
  double growth = 1.0;
};

Correction correctionAt(double coordinate, Spread const& spread) {
  double const angle = 2.0 * CV_PI * (coordinate - std::floor(coordinate));
  Correction correction;
  for (int m = 1; m <= static_cast<int>(harmonics); ++m) {
    correction.shift += spread[m - 1] * std::sin(m * angle) / (CV_PI * m);
    correction.growth += 2.0 * spread[m - 1] * std::cos(m * angle);
  }
  // Where places look alike, noise is not all that decides.
  constexpr double most = 4.0;
  correction.growth = std::clamp(correction.growth, 1.0 / most, most);
  return correction;
}

} // namespace

double removeStaircase(cv::Mat_<float>& coordinates, cv::Mat_<float>* sigma, Progress const& progress) {
  cv::Mat_<Spread> spreads;
  Spread ofAll;
  if (!findSpreads(coordinates, spreads, ofAll, progress.part(0.0, 0.5))) {
    return 0.0;
  }
  constexpr int bandRows = 64;
  parallelRows(coordinates.rows, bandRows, progress.part(0.5, 1.0), "straightening", [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      for (int x = 0; x < coordinates.cols; ++x) {
        float& c = coordinates(y, x);
        if (c >= 0.0F) {
          auto const seen = static_cast<double>(c);
          Correction const correction = correctionAt(seen, spreadAt(spreads, y, x));
          c = static_cast<float>(std::max(0.0, seen + correction.shift));
          if (sigma != nullptr) {
            (*sigma)(y, x) *= static_cast<float>(correction.growth);
          }
        }
      }
    }
  });
  double largest = 0.0;
  constexpr int fractions = 64;
  for (int i = 0; i < fractions; ++i) {
    largest = std::max(largest, std::fabs(correctionAt(static_cast<double>(i) / fractions, ofAll).shift));
  }
  return largest;
}

} // namespace vorn::mv::sl
