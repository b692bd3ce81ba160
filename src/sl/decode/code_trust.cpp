// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/code_trust.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "core/simd.hpp"
#include "sl/coding/code_check.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float pi = 3.14159265F;
constexpr int chunk = 512;

/// 1 for a pixel with an order, 0 for one without, whose order is -1.
inline float certainty(short order) {
  return std::min(static_cast<float>(order) + 1.0F, 1.0F);
}

/// +1 when a neighbour's absolute phase agrees with `p`, -1 when it contradicts, 0 when it is uncertain
/// itself.
inline float vote(float p, float wrapped, short order) {
  float const difference = std::fabs(wrapped + twoPi * static_cast<float>(order) - p);
  return certainty(order) * (difference < pi ? 1.0F : -1.0F);
}

/// Votes agreeing less votes contradicting; 0 for a pixel that makes no claim.
VORN_TARGET_CLONES
void countVotes(VotingRows const& rows, int x0, int n, signed char* __restrict votes) {
  float const* const above = rows.wrapped[0] + x0;
  float const* const phase = rows.wrapped[1] + x0;
  float const* const below = rows.wrapped[2] + x0;
  float const* const left = phase - 1;
  float const* const right = phase + 1;
  short const* const orderAbove = rows.candidate[0] + x0;
  short const* const order = rows.candidate[1] + x0;
  short const* const orderBelow = rows.candidate[2] + x0;
  short const* const orderLeft = order - 1;
  short const* const orderRight = order + 1;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const p = phase[x] + twoPi * static_cast<float>(order[x]);
    float const sum = vote(p, left[x], orderLeft[x]) + vote(p, right[x], orderRight[x]) +
                      vote(p, above[x], orderAbove[x]) + vote(p, below[x], orderBelow[x]);
    votes[x] = static_cast<signed char>(static_cast<int>(certainty(order[x]) * sum));
  }
}

VORN_TARGET_CLONES
void settle(signed char const* votes, short const* candidate, int n, uchar* __restrict state,
            short* __restrict order) {
  for (int x = 0; x < n; ++x) {
    uchar const agreed = votes[x] > 0 ? pixel_state::trusted : state[x];
    state[x] = votes[x] < 0 ? pixel_state::noCode : agreed;
  }
  for (int x = 0; x < n; ++x) {
    order[x] = votes[x] > 0 ? candidate[x] : noOrder;
  }
}

} // namespace

void trustAgreeing(VotingRows const& rows, bool isVoteNeeded, int n, short* order, uchar* state) {
  signed char votes[chunk];
  for (int x0 = 0; x0 < n; x0 += chunk) {
    int const length = std::min(chunk, n - x0);
    short const* const candidate = rows.candidate[1] + x0;
    if (isVoteNeeded) {
      countVotes(rows, x0, length, votes);
    } else {
      std::transform(candidate, candidate + length, votes,
                     [](short claimed) { return static_cast<signed char>(claimed >= 0 ? 1 : 0); });
    }
    settle(votes, candidate, length, state + x0, order + x0);
  }
}

void settleContrast(ScanMaps& maps, std::vector<uchar> const& hasUnsettled, int reach) {
  auto const first = std::find(hasUnsettled.begin(), hasUnsettled.end(), 1);
  if (first == hasUnsettled.end()) {
    return;
  }
  auto const last = std::find(hasUnsettled.rbegin(), hasUnsettled.rend(), 1);
  int const firstRow = static_cast<int>(first - hasUnsettled.begin());
  int const endRow = static_cast<int>(hasUnsettled.rend() - last);
  int const width = 2 * (reach / 2) + 1;
  // What the closing of these rows depends on.
  int const top = std::max(0, firstRow - width);
  int const bottom = std::min(maps.contrast.rows, endRow + width);
  cv::Mat const kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(width, width));
  cv::Mat lit = maps.contrast.rowRange(top, bottom);
  cv::dilate(lit, lit, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT | cv::BORDER_ISOLATED);
  cv::erode(lit, lit, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT | cv::BORDER_ISOLATED);
  for (int y = firstRow; y < endRow; ++y) {
    uchar const* const around = maps.contrast[y];
    uchar* const state = maps.state.inner[y];
    for (int x = 0; hasUnsettled[static_cast<std::size_t>(y)] != 0 && x < maps.contrast.cols; ++x) {
      if (state[x] == pixel_state::unsettledContrast) {
        state[x] = around[x] != 0 ? pixel_state::open : pixel_state::lowContrast;
      }
    }
  }
}

} // namespace vorn::mv::sl
