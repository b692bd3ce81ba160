// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "sl/patterns/order_search.hpp"

namespace vorn::mv::sl {
namespace {

/// Of one pixel by all orders, as the header describes it.
struct Reference {
  int order = 0;
  double cost = std::numeric_limits<double>::max();
  double next = cost;

  Reference(FringeSamples const& fringes, int resolution, std::size_t x) {
    int const orders = static_cast<int>(std::ceil(resolution / fringes.periods[0]));
    for (int k = -1; k < orders; ++k) {
      double own = 0.0;
      for (std::size_t i = 1; i < fringes.periods.size(); ++i) {
        double const ratio = fringes.periods[0] / fringes.periods[i];
        double const turns = (k + static_cast<double>(fringes.turns[0][x])) * ratio;
        double const rest = std::remainder(turns - static_cast<double>(fringes.turns[i][x]), 1.0);
        own += rest * rest /
               (std::pow(fringes.sigma[i][x], 2) + std::pow(ratio * fringes.sigma[0][x], 2) + 1e-6);
      }
      next = std::min(next, std::max(own, cost));
      order = own < cost ? k : order;
      cost = std::min(own, cost);
    }
  }
};

/// Pixels anywhere before, in and behind the image, with noise from none to too much for an order.
FringeSamples samples(std::vector<double> const& periods, int resolution, std::size_t count) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> place(-20.0, resolution + 20.0);
  std::uniform_real_distribution<double> level(std::log(2e-4), std::log(0.1));
  std::normal_distribution<double> normal;
  FringeSamples all{periods, {}, {}};
  all.turns.assign(periods.size(), std::vector<float>(count));
  all.sigma = all.turns;
  for (std::size_t x = 0; x < count; ++x) {
    double const at = place(random);
    double const sigma = std::exp(level(random));
    for (std::size_t i = 0; i < periods.size(); ++i) {
      double const turns = at / periods[i] + sigma * normal(random);
      all.turns[i][x] = static_cast<float>(turns - std::floor(turns));
      all.sigma[i][x] = static_cast<float>(sigma);
    }
  }
  return all;
}

TEST(OrderSearch, FindsWhatTryingAllOrdersFinds) {
  constexpr int resolution = 1920;
  constexpr std::size_t count = 20001;
  double const range = 126 * 16.0;
  for (std::vector<double> const& periods :
       {std::vector<double>{16, 80.5, 402, 2016}, std::vector<double>{16, range / 125, range / 115},
        std::vector<double>{66.75, 100, 2500}, std::vector<double>{18, 2000}}) {
    FringeSamples const fringes = samples(periods, resolution, count);
    std::vector<int> wanted(count, 1);
    wanted[5] = 0;
    FoundOrders found;
    searchOrders(fringes, resolution, wanted, found);
    int clear = 0;
    EXPECT_EQ(found.isClear[5], 0);
    for (std::size_t x = 0; x < count; ++x) {
      Reference const reference(fringes, resolution, x);
      double const gap = reference.next - reference.cost;
      constexpr double rounding = 0.02; // of costs near the limits
      bool const isBetween =
          std::fabs(gap - 20.0) < rounding * 20.0 || std::fabs(reference.cost - 100.0) < 2.0;
      if (wanted[x] == 0 || isBetween) {
        continue;
      }
      bool const isClear = gap >= 20.0 && reference.cost <= 100.0;
      ASSERT_EQ(found.isClear[x] != 0, isClear)
          << "pixel " << x << ", gap " << gap << ", cost " << reference.cost;
      if (isClear) {
        ASSERT_EQ(found.order[x], reference.order) << "pixel " << x;
        ++clear;
      }
    }
    EXPECT_GT(clear, 1000);
    EXPECT_LT(clear, 19500);
  }
}

} // namespace
} // namespace vorn::mv::sl
