// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/sampling_check.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <vector>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int reach = samplingReach;
/// Of every so many columns and rows one is looked at; what is compared across lies in such rows, too, so
/// that no others are read.
constexpr int gridColumns = 4;
constexpr int gridRows = reach;
/// Camera pixels a fringe. Two are what sampling needs, and at a little more the light of a fringe is still
/// lost in the pixels: scans that see 2.0 at the best give next to nothing, those that see 2.3 most of
/// theirs.
constexpr double leastFringe = 2.1;
/// Of the places, those with the widest fringes that decide: the rest of a scan may be seen at grazing
/// angles. There the fringes' amplitude is gone and pixels drop out as dark or without a code.
constexpr double decidingShare = 0.1;
/// Fewer places than this do not speak for a scan.
constexpr std::size_t leastPlaces = 100;
/// Of the places with contrast, the share that must lie on straight stripes: the words of noise seldom do.
constexpr double leastShare = 0.1;

/// What is no stripe's number.
constexpr int noStripe = -1;
constexpr int noContrast = -2;

class Stripes {
public:
  Stripes(ScanMaps const& maps, ScanDecodingSettings const& settings, int codeImages)
      : maps_(maps), count_(settings.stripeCount()), laterBits_(((1 << codeImages) - 1) & ~1) {}

  /// The stripes of a row at the columns that are looked at, one after the other.
  void read(int y, std::vector<int>& stripes) const {
    int const* const reading = maps_.reading.inner[y];
    uchar const* const state = maps_.state.inner[y];
    stripes.clear();
    for (int x = 0; x < maps_.size().width; x += gridColumns) {
      constexpr int codeMask = 0xffff;
      int const word = reading[x] & codeMask;
      int const stripe = (word ^ (-(word & 1) & laterBits_)) - StripeCode::wordOffset;
      bool const hasContrast = maps_.contrast.isSet(y, x) && state[x] != pixel_state::clipped;
      int const known = stripe >= 0 && stripe < count_ ? stripe : noStripe;
      stripes.push_back(hasContrast ? known : noContrast);
    }
  }

private:
  ScanMaps const& maps_;
  int count_;
  int laterBits_;
};

bool isStraight(int before, int here, int after) {
  return before >= 0 && after >= 0 && std::abs(before + after - 2 * here) <= 1;
}

/// How fast stripes pass over the image, in fringes a camera pixel, as the counts of their squares: whole
/// numbers in units of 1 / (2 `reach`), whose sums no order changes.
class Slopes {
public:
  /// Of the stripes of a row and of those `reach` above and below it.
  void addRow(std::vector<int> const& above, std::vector<int> const& own, std::vector<int> const& below) {
    static_assert(reach % gridColumns == 0 && reach == gridRows, "what is compared is looked at");
    constexpr std::size_t aside = reach / gridColumns;
    for (std::size_t i = aside; i + aside < own.size(); ++i) {
      int const here = own[i];
      seen_ += here != noContrast ? 1U : 0U;
      if (here < 0) {
        continue;
      }
      int const left = own[i - aside];
      int const right = own[i + aside];
      if (isStraight(left, here, right) && isStraight(above[i], here, below[i])) {
        int const square = (right - left) * (right - left) + (below[i] - above[i]) * (below[i] - above[i]);
        ++counts_[static_cast<std::size_t>(std::min(square, steepest))];
        ++places_;
      }
    }
  }

  void add(Slopes const& other) {
    std::transform(counts_.begin(), counts_.end(), other.counts_.begin(), counts_.begin(), std::plus<>());
    places_ += other.places_;
    seen_ += other.seen_;
  }

  std::size_t places() const { return places_; }
  /// Places with contrast, straight or not.
  std::size_t seen() const { return seen_; }

  /// The slope that this share of the places lies below.
  double below(double share) const {
    auto const rank = static_cast<std::size_t>(share * static_cast<double>(places_));
    std::size_t square = 0;
    for (std::size_t below = counts_[0]; below <= rank; below += counts_[square]) {
      ++square;
    }
    return std::sqrt(static_cast<double>(square)) / (2.0 * reach);
  }

private:
  /// Stripes that are steeper than four a pixel count as that.
  static constexpr int steepest = 1 << 12;

  std::vector<std::size_t> counts_ = std::vector<std::size_t>(steepest + 1);
  std::size_t places_ = 0;
  std::size_t seen_ = 0;
};

} // namespace

void requireResolvedFringes(ScanMaps const& maps, ScanDecodingSettings const& settings, int codeImages) {
  Stripes const stripes(maps, settings, codeImages);
  Slopes slopes;
  std::mutex adding;
  int const rows = (maps.size().height - 2 * reach + gridRows - 1) / gridRows;
  parallelRows(rows, [&](int first, int end) {
    Slopes ofRows;
    std::array<std::vector<int>, 3> read; // by the number of the row among those that are looked at
    auto const at = [&](int row) -> std::vector<int>& { return read[static_cast<std::size_t>(row) % 3]; };
    stripes.read(first * gridRows, at(first));
    stripes.read((first + 1) * gridRows, at(first + 1));
    for (int row = first; row < end; ++row) {
      stripes.read((row + 2) * gridRows, at(row + 2));
      ofRows.addRow(at(row), at(row + 1), at(row + 2));
    }
    std::lock_guard<std::mutex> const lock(adding);
    slopes.add(ofRows);
  });
  if (slopes.places() < leastPlaces ||
      static_cast<double>(slopes.places()) < leastShare * static_cast<double>(slopes.seen())) {
    return;
  }
  double const widest = slopes.below(decidingShare);
  if (widest * leastFringe > 1.0) {
    throw error(
        cv::format("The camera sees the fringes too finely: at most %.2f of its pixels a fringe of %d "
                   "projector pixels at nine tenths of %zu places, but at least %.1f are needed. Bring the "
                   "camera nearer, or use one with more pixels, or a projector with fewer.",
                   1.0 / widest, settings.period, slopes.places(), leastFringe),
        "decode");
  }
}

} // namespace vorn::mv::sl
