// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_unwrapping.hpp>

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <queue>

#include <gtest/gtest.h>

#include <vorn/mv/sl/phase_quality.hpp>

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
  bool operator<(Waiting const& other) const { return quality < other.quality; }
};

constexpr int neighbours[4][2] = {{0, -1}, {0, 1}, {-1, 0}, {1, 0}};

/// The growth, pixel by pixel over the standard library's heap.
void unwrapLiterally(Maps& m) {
  std::priority_queue<Waiting> queue;
  auto const isInside = [&](int r, int c) {
    return r >= 1 && c >= 1 && r < m.phase.rows - 1 && c < m.phase.cols - 1;
  };
  auto const isMasked = [&](int r, int c) { return !m.mask.empty() && m.mask(r, c) == 0; };
  auto const push = [&](int row, int column, bool takesMasked) {
    for (auto const& n : neighbours) {
      int const r = row + n[0];
      int const c = column + n[1];
      if (isInside(r, c) && m.state(r, c) == 0 && (takesMasked || !isMasked(r, c))) {
        queue.push({r, c, m.quality(r, c)});
        m.state(r, c) = '_';
      }
    }
  };
  for (int r = 1; r < m.phase.rows - 1; ++r) {
    for (int c = 1; c < m.phase.cols - 1; ++c) {
      if (isMasked(r, c)) {
        m.phase(r, c) = -1.0F;
      } else if (m.state(r, c) == 255 && m.code(r, c) < 0) {
        m.state(r, c) = 0;
      } else if (m.state(r, c) == 255) {
        m.phase(r, c) += static_cast<float>(m.code(r, c)) * 6.2831855F;
        push(r, c, true);
      }
    }
  }
  while (!queue.empty()) {
    Waiting const top = queue.top();
    queue.pop();
    float const p = m.phase(top.row, top.column);
    float best = -1.0F;
    float bound = 9999.0F;
    for (auto const& n : neighbours) {
      int const r = top.row + n[0];
      int const c = top.column + n[1];
      if (isInside(r, c) && m.state(r, c) == 255) {
        float const q = m.phase(r, c);
        float const k = floorf(static_cast<float>((q - p) / 6.283185307179586 + 0.5));
        float const candidate = k * 6.2831855F + p;
        if (std::fabs(candidate - q) < bound) {
          bound = std::fabs(candidate - q);
          best = candidate;
        }
      }
    }
    m.phase(top.row, top.column) = bound >= 3.1415927F ? -1.0F : best;
    if (bound < 3.1415927F) {
      m.state(top.row, top.column) = 255;
      push(top.row, top.column, false);
    }
  }
}

/// Random maps; few quality levels make many ties.
Maps randomMaps(cv::Size size, double trusted, int qualityLevels, bool withMask) {
  Maps m;
  m.phase.create(size);
  cv::randu(m.phase, 0.0F, 6.2831853F);
  m.quality.create(size);
  cv::randu(m.quality, 1.0F, 2.0F);
  for (float& q : m.quality) {
    q = std::floor(q * static_cast<float>(qualityLevels)) / static_cast<float>(qualityLevels);
  }
  m.code.create(size);
  cv::randu(m.code, -3, 40);
  m.state.create(size);
  for (uchar& s : m.state) {
    s = cv::theRNG().uniform(0.0, 1.0) < trusted ? 255 : 0;
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

TEST(PhaseUnwrapping, FollowsTheLiteralGrowthBitForBit) {
  for (cv::Size const size : {cv::Size(3, 3), cv::Size(4, 60), cv::Size(61, 5), cv::Size(260, 190)}) {
    for (double const trusted : {0.0, 0.02, 0.5, 0.9, 1.0}) {
      for (int const qualityLevels : {1, 8, 1 << 20}) {
        for (bool const withMask : {false, true}) {
          Maps expected = randomMaps(size, trusted, qualityLevels, withMask);
          Maps actual = copyOf(expected);
          unwrapLiterally(expected);
          unwrap_phase(actual.phase, actual.quality, actual.state, actual.code, actual.mask);
          expectSame(actual, expected);
        }
      }
    }
  }
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
  unwrap_phase(m.phase, m.quality, m.state, m.code);
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
