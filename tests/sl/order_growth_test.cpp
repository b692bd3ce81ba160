// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Growth of orders in bands and regions against growth of all pixels through one list.
#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sl/unwrap/order_growth.hpp"

namespace vorn::mv::sl {
namespace {

constexpr double twoPi = 6.28318530717958648;

/// A wavy surface in noise, cut up by closed pixels; some pixels are known, some contradict most orders.
ScanMaps scatteredMaps(cv::Size size, int closedPercent, int knownPercent) {
  cv::RNG random(11);
  ScanMaps maps;
  maps.create(size);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      double const absolute =
          200 + 0.7 * x + 0.2 * y + 9 * std::sin(0.03 * x + 0.05 * y) + random.gaussian(0.8);
      int const order = static_cast<int>(std::floor(absolute / twoPi));
      int const lot = random.uniform(0, 100);
      bool const isKnown = lot >= 100 - knownPercent;
      maps.wrapped.inner(y, x) = static_cast<float>(absolute - order * twoPi);
      maps.order.inner(y, x) = isKnown ? static_cast<short>(order) : noOrder;
      maps.state.inner(y, x) = isKnown               ? pixel_state::trusted
                               : lot < closedPercent ? pixel_state::dark
                                                     : pixel_state::open;
      bool const isCertain = random.uniform(0, 12) == 0;
      maps.reading.inner(y, x) = isCertain ? static_cast<int>(0xFFU << certainShift) : 0;
    }
  }
  return maps;
}

struct Outcome {
  cv::Mat_<uchar> state; ///< known, open or closed
  cv::Mat_<short> order; ///< of the known pixels
};

Outcome outcomeOf(cv::Mat_<uchar> const& state, cv::Mat_<short> const& order) {
  Outcome outcome{state.clone(), order.clone()};
  for (int y = 0; y < state.rows; ++y) {
    for (int x = 0; x < state.cols; ++x) {
      uchar const s = state(y, x);
      outcome.state(y, x) = pixel_state::isOpen(s) ? pixel_state::open : s;
      outcome.order(y, x) = pixel_state::isKnown(s) ? order(y, x) : noOrder;
    }
  }
  return outcome;
}

/// One pixel after the other, of those beside a known one the best, by looking at all that wait.
class PlainGrowth {
public:
  explicit PlainGrowth(ScanMaps const& maps)
      : maps_(maps), state_(maps.state.inner.clone()), order_(maps.order.inner.clone()) {}

  Outcome run() {
    for (int y = 0; y < state_.rows; ++y) {
      for (int x = 0; x < state_.cols; ++x) {
        bool const isBesideKnown =
            isKnown(y, x - 1) || isKnown(y, x + 1) || isKnown(y - 1, x) || isKnown(y + 1, x);
        if (state_(y, x) == pixel_state::open && isBesideKnown) {
          await({x, y});
        }
      }
    }
    while (!waiting_.empty()) {
      std::pop_heap(waiting_.begin(), waiting_.end());
      cv::Point const p(waiting_.back().column, -waiting_.back().minusRow);
      waiting_.pop_back();
      grow({-p.x, p.y});
    }
    return outcomeOf(state_, order_);
  }

private:
  struct Turn {
    double quality;
    int minusRow;
    int column; ///< negative, too: of equal qualities the upper, then the left one has its turn
    bool operator<(Turn const& o) const {
      return std::tie(quality, minusRow, column) < std::tie(o.quality, o.minusRow, o.column);
    }
  };

  bool isInside(int y, int x) const { return y >= 0 && x >= 0 && y < state_.rows && x < state_.cols; }
  bool isKnown(int y, int x) const { return isInside(y, x) && pixel_state::isKnown(state_(y, x)); }
  /// Outside the image there is no phase, which is -1.
  float phase(int y, int x) const { return isInside(y, x) ? maps_.wrapped.inner(y, x) : -1.0F; }

  void await(cv::Point p) {
    float const own = phase(p.y, p.x);
    float jump = 0;
    for (cv::Point const& d : steps) {
      jump = std::max(jump, std::fabs(own - phase(p.y + d.y, p.x + d.x)));
    }
    auto const quality = static_cast<float>(1.0 - static_cast<float>(jump - CV_2PI) * (1.0 / CV_2PI));
    state_(p) = pixel_state::waiting;
    waiting_.push_back({static_cast<double>(quality), -p.y, -p.x});
    std::push_heap(waiting_.begin(), waiting_.end());
  }

  void grow(cv::Point p) {
    double const own = static_cast<double>(phase(p.y, p.x));
    double best = CV_PI;
    int order = noOrder;
    for (cv::Point const& d : steps) {
      cv::Point const n = p + d;
      if (isKnown(n.y, n.x)) {
        double const known = static_cast<double>(phase(n.y, n.x)) + twoPi * order_(n);
        int const candidate = static_cast<int>(std::lround((known - own) / twoPi));
        double const distance = std::fabs(own + twoPi * candidate - known);
        order = distance < best ? candidate : order;
        best = std::min(best, distance);
      }
    }
    bool const isFound = order != noOrder;
    bool const fits = isFound && CodeCheck(4).fits(static_cast<CodeReading>(maps_.reading.inner(p)),
                                                   static_cast<float>(own) +
                                                       static_cast<float>(twoPi) * static_cast<float>(order));
    state_(p) = fits ? pixel_state::grown : isFound ? pixel_state::noCode : pixel_state::waiting;
    order_(p) = static_cast<short>(order);
    for (cv::Point const& d : steps) {
      cv::Point const n = p + d;
      if (state_(p) == pixel_state::grown && isInside(n.y, n.x) && state_(n) == pixel_state::open) {
        await(n);
      }
    }
  }

  static inline std::vector<cv::Point> const steps{{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
  ScanMaps const& maps_;
  cv::Mat_<uchar> state_;
  cv::Mat_<short> order_;
  std::vector<Turn> waiting_;
};

TEST(OrderGrowth, InBandsIsGrowthOfAllPixelsTogether) {
  // Many small regions, many of them over the rows where bands meet; such of all sizes; one of nearly all
  // pixels.
  struct Mix {
    int closed, known;
  };
  for (Mix const& mix : {Mix{48, 4}, Mix{41, 2}, Mix{10, 1}}) {
    SCOPED_TRACE(mix.closed);
    ScanMaps maps = scatteredMaps({400, 300}, mix.closed, mix.known);
    Outcome const expected = PlainGrowth(maps).run();
    for (int threads : {1, 4}) {
      int const before = cv::getNumThreads();
      cv::setNumThreads(threads);
      ScanMaps grown = scatteredMaps({400, 300}, mix.closed, mix.known);
      growOrders({grown, CodeCheck(4), true}, Progress());
      cv::setNumThreads(before);
      Outcome const outcome = outcomeOf(grown.state.inner, grown.order.inner);
      EXPECT_EQ(cv::norm(outcome.state, expected.state, cv::NORM_L1), 0);
      EXPECT_EQ(cv::norm(outcome.order, expected.order, cv::NORM_L1), 0);
      int const count = cv::countNonZero(outcome.state == static_cast<int>(pixel_state::grown));
      EXPECT_GT(count, 3000);
    }
  }
}

} // namespace
} // namespace vorn::mv::sl
