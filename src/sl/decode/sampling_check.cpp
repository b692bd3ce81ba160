// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/sampling_check.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include <opencv2/core.hpp>

#include "core/error.hpp"

namespace vorn::mv::sl {

namespace {

/// Camera pixels between the codes that are compared.
constexpr int reach = 8;
/// Of every so many rows and columns one is looked at.
constexpr int grid = 4;
/// Camera pixels a fringe. Two are what sampling needs; the measure is exact to a tenth.
constexpr double leastFringe = 1.9;
/// Fewer places than this do not speak for a scan.
constexpr std::size_t leastPlaces = 100;
/// Of the places with contrast, the share that must lie on straight stripes: the words of noise seldom do.
constexpr double leastShare = 0.1;

class Stripes {
public:
  Stripes(ScanMaps const& maps, ScanDecodingSettings const& settings, int codeImages)
      : maps_(maps), count_(settings.stripeCount()), laterBits_(((1 << codeImages) - 1) & ~1) {}

  bool hasContrast(int y, int x) const {
    return maps_.contrast(y, x) != 0 && maps_.state.inner(y, x) != pixel_state::clipped;
  }

  /// -1: none
  int at(int y, int x) const {
    constexpr int codeMask = 0xffff;
    int const word = maps_.reading.inner(y, x) & codeMask;
    int const stripe = ((word & 1) != 0 ? word ^ laterBits_ : word) - StripeCode::wordOffset;
    return hasContrast(y, x) && stripe >= 0 && stripe < count_ ? stripe : -1;
  }

private:
  ScanMaps const& maps_;
  int count_;
  int laterBits_;
};

bool isStraight(int before, int here, int after) {
  return before >= 0 && after >= 0 && std::abs(before + after - 2 * here) <= 1;
}

} // namespace

void requireResolvedFringes(ScanMaps const& maps, ScanDecodingSettings const& settings, int codeImages) {
  Stripes const stripes(maps, settings, codeImages);
  std::vector<double> slopes; // fringes a camera pixel
  std::size_t seen = 0;
  for (int y = reach; y < maps.size().height - reach; y += grid) {
    for (int x = reach; x < maps.size().width - reach; x += grid) {
      seen += stripes.hasContrast(y, x) ? 1U : 0U;
      int const here = stripes.at(y, x);
      int const left = stripes.at(y, x - reach);
      int const right = stripes.at(y, x + reach);
      int const above = stripes.at(y - reach, x);
      int const below = stripes.at(y + reach, x);
      if (here >= 0 && isStraight(left, here, right) && isStraight(above, here, below)) {
        slopes.push_back(std::hypot(right - left, below - above) / (2.0 * reach));
      }
    }
  }
  if (slopes.size() < leastPlaces ||
      static_cast<double>(slopes.size()) < leastShare * static_cast<double>(seen)) {
    return;
  }
  auto const middle = slopes.begin() + static_cast<std::ptrdiff_t>(slopes.size() / 2);
  std::nth_element(slopes.begin(), middle, slopes.end());
  if (*middle * leastFringe > 1.0) {
    throw error(
        cv::format("The camera sees the fringes too finely: %.2f of its pixels a fringe of %d projector "
                   "pixels (median of %zu places), but at least %.1f are needed. Bring the camera "
                   "nearer, or use one with more pixels, or a projector with fewer.",
                   1.0 / *middle, settings.period, slopes.size(), leastFringe),
        "decode");
  }
}

} // namespace vorn::mv::sl
