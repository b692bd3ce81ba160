// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/order_search.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Deviations of the phase that are not noise, turns: what gamma leaves, and rounding.
constexpr float systematic = 1e-3F;

/// The deviation of a fringe when the finest one's order is 0, and the weight of its square.
VORN_TARGET_CLONES
void prepareRow(float const* finest, float const* finestSigma, float const* turns, float const* sigma,
                float ratio, int n, float* __restrict base, float* __restrict weight) {
  for (int x = 0; x < n; ++x) {
    base[x] = finest[x] * ratio - turns[x];
    float const ofFinest = ratio * finestSigma[x];
    weight[x] = 1.0F / (sigma[x] * sigma[x] + ofFinest * ofFinest + systematic * systematic);
  }
}

VORN_TARGET_CLONES
void addCost(float const* base, float const* weight, float shift, int n, float* __restrict cost) {
  // Adding and taking off a number of 24 bits rounds.
  constexpr float rounder = 12582912.0F;
  for (int x = 0; x < n; ++x) {
    float const d = base[x] + shift;
    float const whole = (d + rounder) - rounder;
    float const rest = d - whole;
    cost[x] += weight[x] * rest * rest;
  }
}

VORN_TARGET_CLONES
void keepBest(float const* cost, float order, int n, float* __restrict best, float* __restrict next,
              float* __restrict bestOrder) {
  for (int x = 0; x < n; ++x) {
    bool const isBetter = cost[x] < best[x];
    next[x] = std::min(next[x], std::max(cost[x], best[x]));
    best[x] = std::min(cost[x], best[x]);
    bestOrder[x] = isBetter ? order : bestOrder[x];
  }
}

constexpr std::size_t chunk = 512; ///< pixels whose numbers stay in the first-level cache

} // namespace

void searchOrders(FringeSamples const& fringes, int resolution, int n, FoundOrders& found) {
  std::size_t const others = fringes.periods.size() - 1;
  double const finest = fringes.periods[0];
  auto const count = static_cast<std::size_t>(n);
  found.order.resize(count);
  found.cost.resize(count);
  found.gap.resize(count);
  std::vector<float> base(others * chunk);
  std::vector<float> weight(others * chunk);
  std::vector<float> cost(chunk);
  std::vector<float> next(chunk);
  std::vector<float> order(chunk);
  int const orders = static_cast<int>(std::ceil(resolution / finest));
  for (std::size_t x0 = 0; x0 < count; x0 += chunk) {
    int const m = static_cast<int>(std::min(chunk, count - x0));
    for (std::size_t i = 0; i < others; ++i) {
      prepareRow(fringes.turns[0].data() + x0, fringes.sigma[0].data() + x0, fringes.turns[i + 1].data() + x0,
                 fringes.sigma[i + 1].data() + x0, static_cast<float>(finest / fringes.periods[i + 1]), m,
                 base.data() + i * chunk, weight.data() + i * chunk);
    }
    float* const best = found.cost.data() + x0;
    std::fill_n(best, m, std::numeric_limits<float>::max());
    std::fill(next.begin(), next.end(), std::numeric_limits<float>::max());
    for (int k = -1; k < orders; ++k) {
      std::fill(cost.begin(), cost.end(), 0.0F);
      for (std::size_t i = 0; i < others; ++i) {
        double const shift = k * finest / fringes.periods[i + 1];
        addCost(base.data() + i * chunk, weight.data() + i * chunk,
                static_cast<float>(shift - std::floor(shift)), m, cost.data());
      }
      keepBest(cost.data(), static_cast<float>(k), m, best, next.data(), order.data());
    }
    for (int x = 0; x < m; ++x) {
      auto const at = static_cast<std::size_t>(x);
      found.order[x0 + at] = static_cast<short>(order[at]);
      found.gap[x0 + at] = next[at] - best[at];
    }
  }
}

} // namespace vorn::mv::sl
