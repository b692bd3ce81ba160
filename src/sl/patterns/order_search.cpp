// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/order_search.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "core/nearest_whole.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Deviations of the phase that are not noise, turns: what gamma leaves, and rounding.
constexpr float systematic = 1e-3F;
/// Odds of 20 000 to 1 against the next best, and not far from it by itself.
constexpr float clearGap = 20.0F;
constexpr float mostCost = 100.0F;

/// Pixels that are looked at together, in a few registers.
constexpr int chunk = 32;

/// Whole numbers may be off by rounding.
constexpr float nearlyHalf = 0.499F;

/// Another fringe beside the finest one: how its deviation goes with the finest one's order.
struct Other {
  std::size_t fringe;
  float ratio;     ///< of the finest period to its own
  float perOrder;  ///< turns, less whole ones and without its sign
  float direction; ///< that sign
};

/// Those first whose deviations repeat after the most orders.
std::vector<Other> othersOf(std::vector<double> const& periods) {
  std::vector<Other> others;
  for (std::size_t i = 1; i < periods.size(); ++i) {
    double const ratio = periods[0] / periods[i];
    double const rest = ratio - std::round(ratio);
    others.push_back(
        {i, static_cast<float>(ratio), static_cast<float>(std::fabs(rest)), rest < 0.0 ? -1.0F : 1.0F});
  }
  std::sort(others.begin(), others.end(),
            [](Other const& a, Other const& b) { return a.perOrder < b.perOrder; });
  return others;
}

/// Numbers of one other fringe at some pixels.
struct OtherRow {
  std::array<float, chunk> base;   ///< its deviation when the finest one's order is 0, turns
  std::array<float, chunk> weight; ///< of its square
};

struct SampleRow {
  float const* turns;
  float const* sigma;
};

VORN_TARGET_CLONES
void prepare(SampleRow const& finest, SampleRow const& own, Other const& other, int n, OtherRow& row) {
  float* __restrict const base = row.base.data();
  float* __restrict const weight = row.weight.data();
  Other const by = other;
  SampleRow const a = finest;
  SampleRow const b = own;
  for (int x = 0; x < n; ++x) {
    base[x] = by.direction * (a.turns[x] * by.ratio - b.turns[x]);
    float const ofFinest = by.ratio * a.sigma[x];
    weight[x] = 1.0F / (b.sigma[x] * b.sigma[x] + ofFinest * ofFinest + systematic * systematic);
  }
}

/// The smallest whole number from here on, or the one before that where rounding may matter.
VORN_ALWAYS_INLINE float upwards(float value) {
  return nearestWhole(value + nearlyHalf);
}

VORN_ALWAYS_INLINE float downwards(float value) {
  return nearestWhole(value - nearlyHalf);
}

/// Leaves of the orders from `least` to `most` those that cost little enough by this fringe alone, and what
/// lies between them.
VORN_TARGET_CLONES
void narrow(OtherRow const& row, float perOrder, int n, float* __restrict least, float* __restrict most) {
  float const perTurn = 1.0F / perOrder;
  float const* const base = row.base.data();
  float const* const weight = row.weight.data();
  for (int x = 0; x < n; ++x) {
    float const reach = std::sqrt((mostCost + clearGap) / weight[x]);
    float const first = upwards(least[x] * perOrder + base[x] - reach);
    float const last = downwards(most[x] * perOrder + base[x] + reach);
    least[x] = std::max(least[x], (first - reach - base[x]) * perTurn);
    most[x] = std::min(most[x], (last + reach - base[x]) * perTurn);
  }
}

/// @return how many orders there are at most
VORN_TARGET_CLONES
float countOrders(int n, float* __restrict least, float* __restrict most) {
  float largest = 0.0F;
  for (int x = 0; x < n; ++x) {
    least[x] = upwards(least[x]);
    most[x] = downwards(most[x]);
    largest = std::max(largest, most[x] - least[x] + 1.0F);
  }
  return largest;
}

VORN_TARGET_CLONES
void addCost(OtherRow const& row, float perOrder, float const* order, int n, float* __restrict cost) {
  float const* const base = row.base.data();
  float const* const weight = row.weight.data();
  for (int x = 0; x < n; ++x) {
    float const d = order[x] * perOrder + base[x];
    float const rest = d - nearestWhole(d);
    cost[x] += weight[x] * rest * rest;
  }
}

/// What is kept of the orders that were tried.
struct BestRow {
  std::array<float, chunk> cost, next, order;
};

VORN_TARGET_CLONES
void keepBest(float const* cost, float const* order, float last, int n, BestRow& row) {
  float* __restrict const best = row.cost.data();
  float* __restrict const next = row.next.data();
  float* __restrict const bestOrder = row.order.data();
  for (int x = 0; x < n; ++x) {
    float const own = order[x] > last ? std::numeric_limits<float>::max() : cost[x];
    float const before = best[x];
    next[x] = std::min(next[x], std::max(own, before));
    best[x] = std::min(own, before);
    bestOrder[x] = own < before ? order[x] : bestOrder[x];
  }
}

VORN_TARGET_CLONES
void decide(BestRow const& best, int const* isWanted, int n, int* __restrict order, int* __restrict isClear) {
  float const* const cost = best.cost.data();
  float const* const next = best.next.data();
  float const* const found = best.order.data();
  for (int x = 0; x < n; ++x) {
    int const isBest = cost[x] <= mostCost ? 1 : 0;
    int const isAlone = next[x] - cost[x] >= clearGap ? 1 : 0;
    order[x] = static_cast<int>(found[x]);
    isClear[x] = isBest & isAlone & isWanted[x];
  }
}

/// The search at up to `chunk` pixels.
class ChunkSearch {
public:
  ChunkSearch(FringeSamples const& fringes, int resolution)
      : fringes_(fringes), others_(othersOf(fringes.periods)), rows_(others_.size()),
        last_(static_cast<float>(std::ceil(resolution / fringes.periods[0]) - 1.0)) {}

  void run(std::size_t at, int n, int const* isWanted, int* order, int* isClear) {
    auto const sampleRow = [&](std::size_t i) {
      return SampleRow{fringes_.turns[i].data() + at, fringes_.sigma[i].data() + at};
    };
    for (int x = 0; x < n; ++x) {
      // Those that are not wanted have no orders.
      least_[static_cast<std::size_t>(x)] = isWanted[x] != 0 ? -1.0F : 1.0F;
      most_[static_cast<std::size_t>(x)] = isWanted[x] != 0 ? last_ : 0.0F;
    }
    for (std::size_t i = 0; i < others_.size(); ++i) {
      prepare(sampleRow(0), sampleRow(others_[i].fringe), others_[i], n, rows_[i]);
      constexpr float hardly = 1e-6F; // turns: of periods that divide one another
      if (others_[i].perOrder > hardly) {
        narrow(rows_[i], others_[i].perOrder, n, least_.data(), most_.data());
      }
    }
    best_.cost.fill(std::numeric_limits<float>::max());
    best_.next.fill(std::numeric_limits<float>::max());
    best_.order.fill(0.0F);
    int const count = static_cast<int>(countOrders(n, least_.data(), most_.data()));
    for (int k = 0; k < count; ++k) {
      cost_.fill(0.0F);
      for (std::size_t i = 0; i < others_.size(); ++i) {
        addCost(rows_[i], others_[i].perOrder, least_.data(), n, cost_.data());
      }
      keepBest(cost_.data(), least_.data(), last_, n, best_);
      for (float& one : least_) {
        one += 1.0F;
      }
    }
    decide(best_, isWanted, n, order, isClear);
  }

private:
  FringeSamples const& fringes_;
  std::vector<Other> others_;
  std::vector<OtherRow> rows_;
  float last_; ///< order
  std::array<float, chunk> least_{}, most_{}, cost_{};
  BestRow best_{};
};

} // namespace

void searchOrders(FringeSamples const& fringes, int resolution, std::vector<int> const& isWanted,
                  FoundOrders& found) {
  found.order.resize(isWanted.size());
  found.isClear.resize(isWanted.size());
  ChunkSearch search(fringes, resolution);
  for (std::size_t at = 0; at < isWanted.size(); at += chunk) {
    int const n = static_cast<int>(std::min<std::size_t>(chunk, isWanted.size() - at));
    search.run(at, n, isWanted.data() + at, found.order.data() + at, found.isClear.data() + at);
  }
}

} // namespace vorn::mv::sl
