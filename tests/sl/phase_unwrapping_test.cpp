// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_unwrapping.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <queue>
#include <stdexcept>
#include <tuple>

#include <gtest/gtest.h>

#include <vorn/mv/sl/phase_quality.hpp>

#include "sl/unwrap/growth_queue.hpp"

namespace vorn::mv {
namespace {

struct Maps {
  cv::Mat_<float> phase;
  cv::Mat_<float> quality;
  cv::Mat_<uchar> state;
  cv::Mat_<std::int16_t> code;
  cv::Mat_<uchar> mask;
};

Maps copyOf(Maps const& maps) {
  return {maps.phase.clone(), maps.quality, maps.state.clone(), maps.code, maps.mask};
}

struct Waiting {
  int row;
  int column;
  float quality;
  bool operator<(Waiting const& other) const {
    return std::tie(quality, other.row, other.column) < std::tie(other.quality, row, column);
  }
};

constexpr int neighbours[4][2] = {{0, -1}, {0, 1}, {-1, 0}, {1, 0}};

/// The growth, pixel by pixel, with one queue for the whole image.
class LiteralUnwrapping {
public:
  explicit LiteralUnwrapping(Maps& maps) : m_(maps) {}

  void run() {
    seed();
    grow();
  }

private:
  bool isInside(int r, int c) const {
    return r >= 1 && c >= 1 && r < m_.phase.rows - 1 && c < m_.phase.cols - 1;
  }
  bool isMasked(int r, int c) const { return !m_.mask.empty() && m_.mask(r, c) == 0; }

  void seed() {
    for (int r = 1; r < m_.phase.rows - 1; ++r) {
      for (int c = 1; c < m_.phase.cols - 1; ++c) {
        if (isMasked(r, c)) {
          m_.phase(r, c) = -1.0F;
        } else if (m_.state(r, c) == 255 && m_.code(r, c) < 0) {
          m_.state(r, c) = 0;
        } else if (m_.state(r, c) == 255) {
          m_.phase(r, c) += static_cast<float>(m_.code(r, c)) * 6.2831855F;
          pushUnreached(r, c, true);
        }
      }
    }
  }

  void pushUnreached(int row, int column, bool takesMasked) {
    for (auto const& n : neighbours) {
      int const r = row + n[0];
      int const c = column + n[1];
      if (isInside(r, c) && m_.state(r, c) == 0 && (takesMasked || !isMasked(r, c))) {
        queue_.push({r, c, m_.quality(r, c)});
        m_.state(r, c) = '_';
      }
    }
  }

  void grow() {
    while (!queue_.empty()) {
      Waiting const top = queue_.top();
      queue_.pop();
      float const p = m_.phase(top.row, top.column);
      float best = -1.0F;
      float bound = 9999.0F;
      for (auto const& n : neighbours) {
        int const r = top.row + n[0];
        int const c = top.column + n[1];
        if (isInside(r, c) && m_.state(r, c) == 255) {
          float const q = m_.phase(r, c);
          float const k = floorf(static_cast<float>((q - p) / 6.283185307179586 + 0.5));
          float const candidate = k * 6.2831855F + p;
          if (std::fabs(candidate - q) < bound) {
            bound = std::fabs(candidate - q);
            best = candidate;
          }
        }
      }
      bool const isRejected = bound >= 3.1415927F;
      m_.phase(top.row, top.column) = isRejected ? -1.0F : best;
      if (!isRejected) {
        m_.state(top.row, top.column) = 255;
        pushUnreached(top.row, top.column, false);
      }
    }
  }

  Maps& m_;
  std::priority_queue<Waiting> queue_;
};

/// Random maps, a tenth of whose pixels is closed to growth. With `ties` only eight different qualities, else
/// no two alike.
Maps randomMaps(cv::Size size, double trusted, bool ties, bool withMask) {
  Maps m;
  m.phase.create(size);
  cv::randu(m.phase, 0.0F, 6.2831853F);
  m.quality.create(size);
  float rank = 0;
  for (float& q : m.quality) {
    q = 1.0F + rank / static_cast<float>(size.area());
    rank += 1;
  }
  cv::randShuffle(m.quality);
  if (ties) {
    cv::randu(m.quality, 0, 8);
    for (float& q : m.quality) {
      q = std::floor(q);
    }
  }
  m.code.create(size);
  cv::randu(m.code, -3, 40);
  m.state.create(size);
  for (uchar& s : m.state) {
    s = cv::theRNG().uniform(0.0, 1.0) < trusted ? 255 : 0;
    s = cv::theRNG().uniform(0, 10) == 0 ? '_' : s;
  }
  if (withMask) {
    m.mask.create(size);
    cv::randu(m.mask, 0, 5);
  }
  return m;
}

void expectSame(Maps const& a, Maps const& b) {
  EXPECT_EQ(cv::norm(a.phase, b.phase, cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(a.state, b.state, cv::NORM_INF), 0);
}

void expectLikeLiteral(Maps const& maps) {
  Maps expected = copyOf(maps);
  LiteralUnwrapping(expected).run();
  Maps actual = copyOf(maps);
  unwrap_phase(actual.phase, actual.quality, actual.state, actual.code, actual.mask);
  expectSame(actual, expected);
}

TEST(PhaseUnwrapping, FollowsTheLiteralGrowthBitForBit) {
  for (cv::Size const size : {cv::Size(3, 3), cv::Size(4, 60), cv::Size(61, 5), cv::Size(260, 190)}) {
    for (double const trusted : {0.0, 0.02, 0.5, 0.7, 0.9, 1.0}) {
      for (bool const withMask : {false, true}) {
        expectLikeLiteral(randomMaps(size, trusted, false, withMask));
        expectLikeLiteral(randomMaps(size, trusted, true, withMask));
      }
    }
  }
}

TEST(PhaseUnwrapping, GrowsIntoLargeRegionsOfAnyQualityBitForBit) {
  for (bool const ties : {false, true}) {
    Maps maps = randomMaps({120, 400}, 0.0, ties, true);
    // One trusted rectangle with codes throughout leaves one region around it; every other column leaves
    // regions with more seeds than a comparison sort takes.
    maps.state(cv::Rect(20, 30, 90, 60)).setTo(255);
    maps.code.setTo(0, maps.code < 0);
    maps.quality -= 1.5F;
    maps.quality(cv::Rect(0, 70, 120, 5)) *= 1e30F;
    maps.quality(cv::Rect(0, 80, 120, 5)) *= 0.0F;
    expectLikeLiteral(maps);
    maps.mask = cv::Mat_<uchar>(maps.mask.size(), uchar{1});
    maps.state = uchar{0};
    for (int column = 0; column < maps.state.cols; column += 3) {
      maps.state.col(column).setTo(255);
    }
    expectLikeLiteral(maps);
  }
}

TEST(PhaseUnwrapping, GrowsTensOfThousandsOfRegionsBitForBit) {
  // More runs of pixels than are kept together, more pixels than are gathered at a time.
  for (double const trusted : {0.6, 0.8}) {
    expectLikeLiteral(randomMaps({800, 300}, trusted, false, false));
  }
}

TEST(PhaseUnwrapping, PixelsWithoutAQualityComeLast) {
  Maps m{cv::Mat_<float>(3, 8, 0.0F),
         cv::Mat_<float>(3, 8, std::numeric_limits<float>::quiet_NaN()),
         cv::Mat_<uchar>(3, 8, uchar{0}),
         cv::Mat_<std::int16_t>(3, 8, std::int16_t{0}),
         {}};
  m.state(1, 1) = m.state(1, 6) = 255;
  m.code(1, 6) = 1;
  m.quality(1, 5) = -5.0F;
  m.quality(1, 4) = -6.0F;
  unwrap_phase(m.phase, m.quality, m.state, m.code);
  EXPECT_EQ(m.phase(1, 2), 0.0F);
  EXPECT_EQ(m.phase(1, 3), 0.0F); // before (1, 3), the other side has had its turn up to (1, 4)
  EXPECT_EQ(m.phase(1, 4), 6.2831855F);
  EXPECT_EQ(m.phase(1, 5), 6.2831855F);
}

TEST(PhaseUnwrapping, RefusesMapsThatDoNotFitAndChangesNothing) {
  Maps const maps = randomMaps({20, 10}, 0.5, true, true);
  Maps actual = copyOf(maps);
  auto const refuse = [&](cv::Mat_<float> const& quality, cv::Mat const& code, cv::Mat const& mask) {
    EXPECT_THROW(unwrap_phase(actual.phase, quality, actual.state, code, mask), std::invalid_argument);
    expectSame(actual, maps);
  };
  refuse(maps.quality.colRange(0, 19), maps.code, maps.mask);
  refuse(maps.quality, maps.state, maps.mask);
  refuse(maps.quality, cv::Mat(), maps.mask);
  refuse(maps.quality, maps.code, maps.mask.rowRange(0, 9));
}

TEST(PhaseUnwrapping, TheMaskMayBeTheStateItself) {
  // Only what waited from the start is open then: what growth changes in the state must not unmask it.
  auto const expectAlike = [](Maps const& maps) {
    Maps expected = copyOf(maps);
    unwrap_phase(expected.phase, expected.quality, expected.state, expected.code, maps.state.clone());
    Maps actual = copyOf(maps);
    unwrap_phase(actual.phase, actual.quality, actual.state, actual.code, actual.state);
    expectSame(actual, expected);
  };
  expectAlike(randomMaps({60, 40}, 0.4, false, false));
  // A region that is grown by itself, for its size: trusted pixels without codes.
  Maps large = randomMaps({120, 90}, 1, false, false);
  large.code(cv::Rect(10, 10, 100, 70)).setTo(-1);
  expectAlike(large);
}

TEST(PhaseUnwrapping, ZerosOfEitherSignAreOneQuality) {
  EXPECT_EQ(GrowthQueue::keyOf(-0.0F, 7), GrowthQueue::keyOf(0.0F, 7));
  EXPECT_GT(GrowthQueue::keyOf(-0.0F, 3), GrowthQueue::keyOf(0.0F, 4));
  EXPECT_GT(GrowthQueue::keyOf(0.0F, 3), GrowthQueue::keyOf(-1e-30F, 3));
}

TEST(PhaseUnwrapping, RecoversARampFromScatteredSeeds) {
  cv::Size const size(300, 200);
  auto const absolute = [](int y, int x) { return 0.31 * x + 0.07 * y; };
  Maps m;
  m.phase.create(size);
  m.code.create(size);
  m.state = cv::Mat_<uchar>(size, uchar{0});
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      double const order = std::floor(absolute(y, x) / (2 * CV_PI));
      m.phase(y, x) = static_cast<float>(absolute(y, x) - order * 2 * CV_PI);
      m.code(y, x) = static_cast<std::int16_t>(order);
      m.state(y, x) = cv::theRNG().uniform(0, 50) == 0 ? 255 : 0;
    }
  }
  calc_quality(m.phase, m.quality);
  cv::Mat_<float> const wrapped = m.phase.clone();
  int const threads = cv::getNumThreads();
  cv::setNumThreads(2);
  unwrap_phase(m.phase, m.quality, m.state, m.code);
  cv::setNumThreads(threads);
  // Float rounding of phases up to 107 and of the product order * 2π.
  constexpr double tolerance = 2e-5;
  for (int y = 1; y < size.height - 1; ++y) {
    for (int x = 1; x < size.width - 1; ++x) {
      ASSERT_NEAR(m.phase(y, x), absolute(y, x), tolerance) << y << " " << x;
    }
  }
  EXPECT_EQ(cv::norm(m.phase.row(0), wrapped.row(0), cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(m.phase.col(299), wrapped.col(299), cv::NORM_INF), 0);
}

TEST(PhaseUnwrapping, ADifferenceOfExactlyPiIsRejected) {
  Maps m{cv::Mat_<float>(3, 4, 0.0F),
         cv::Mat_<float>(3, 4, 1.0F),
         cv::Mat_<uchar>(3, 4, uchar{0}),
         cv::Mat_<std::int16_t>(3, 4, std::int16_t{0}),
         {}};
  m.state(1, 1) = 255;
  m.phase(1, 2) = 3.1415927F;
  unwrap_phase(m.phase, m.quality, m.state, m.code);
  EXPECT_EQ(m.phase(1, 2), -1.0F);
  EXPECT_EQ(m.state(1, 2), 95);
}

} // namespace
} // namespace vorn::mv
