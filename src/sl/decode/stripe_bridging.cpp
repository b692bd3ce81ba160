// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/stripe_bridging.hpp"

#include <algorithm>
#include <cmath>

#include "core/parallel.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int longestBridge = 32;
/// Largest change of phase from one pixel to the next that is still followed.
constexpr float stepLimit = 0.4F * twoPi;
/// Columns that are walked down together: what is kept for them stays in the first-level cache.
constexpr int columnBlock = 256;

class Bridging {
public:
  Bridging(ScanDecodingSettings const& settings, CodeCheck const& codes, ScanDecodingBuffers& buffers)
      : codes_(codes), phase_(buffers.phase.inner), magnitude_(buffers.magnitude.inner),
        code_(buffers.code.inner), state_(buffers.state.inner), border_(codeBorder(settings.period)),
        longest_(std::min(4 * settings.period, longestBridge)) {}

  void alongRow(int y) {
    uchar const* const states = state_[y];
    int const n = state_.cols;
    int trusted = -1;
    for (int x = 0; x < n; ++x) {
      if (states[x] == knownState) {
        if (trusted >= 0 && x - trusted > 1) {
          bridge({trusted, y}, {1, 0}, x - trusted);
        }
        trusted = x;
      } else if (states[x] == closedState) {
        trusted = -1;
      }
    }
  }

  void alongColumns(int firstColumn) {
    int const n = std::min(columnBlock, state_.cols - firstColumn);
    int trusted[columnBlock];
    std::fill_n(trusted, n, -1);
    for (int y = 0; y < state_.rows; ++y) {
      uchar const* const states = state_[y] + firstColumn;
      for (int x = 0; x < n; ++x) {
        if (states[x] == knownState) {
          if (trusted[x] >= 0 && y - trusted[x] > 1) {
            bridge({firstColumn + x, trusted[x]}, {0, 1}, y - trusted[x]);
          }
          trusted[x] = y;
        } else if (states[x] == closedState) {
          trusted[x] = -1;
        }
      }
    }
  }

private:
  float absolutePhase(cv::Point p) const { return phase_(p) + twoPi * static_cast<float>(code_(p)); }

  /// The stripe that the code of a trusted pixel's place belongs to.
  int stripeAt(cv::Point p) const { return code_(p) + (phase_(p) > border_ ? 1 : 0); }

  /// What is bridged is a border, so the ends are in different stripes; along a border, many pixels one after
  /// the other are uncertain, and following them would only tell that both ends are on one surface.
  void bridge(cv::Point from, cv::Point step, int length) {
    cv::Point const to = from + length * step;
    if (length > longest_ || (length > 2 && stripeAt(from) == stripeAt(to))) {
      return;
    }
    float phases[longestBridge];
    float before = absolutePhase(from);
    for (int i = 1; i <= length; ++i) {
      float const wrapped = phase_(from + i * step);
      // Rounding to the nearest order; the offset of one keeps what is truncated positive.
      int const order = static_cast<int>((before - wrapped) * (1.0F / twoPi) + 1.5F) - 1;
      float const here = wrapped + twoPi * static_cast<float>(order);
      if (std::fabs(here - before) > stepLimit || here < 0.0F) {
        return;
      }
      phases[i - 1] = here;
      before = here;
    }
    if (std::fabs(before - absolutePhase(to)) > 0.5F * twoPi) {
      return;
    }
    for (int i = 1; i < length; ++i) {
      settle(from + i * step, phases[i - 1]);
    }
  }

  void settle(cv::Point p, float absolute) {
    if (codes_.fit(p, absolute, magnitude_(p))) {
      code_(p) = static_cast<short>(absolute / twoPi);
      state_(p) = knownState;
    } else {
      state_(p) = closedState;
    }
  }

  CodeCheck const& codes_;
  cv::Mat_<float>& phase_;
  cv::Mat_<float>& magnitude_;
  cv::Mat_<short>& code_;
  cv::Mat_<uchar>& state_;
  float border_;
  int longest_;
};

} // namespace

void bridgeStripeBorders(ScanDecodingSettings const& settings, CodeCheck const& codes,
                         ScanDecodingBuffers& buffers) {
  cv::Size const size = buffers.state.inner.size();
  parallelRows(size.height, [&](int firstRow, int endRow) {
    Bridging bridging(settings, codes, buffers);
    for (int y = firstRow; y < endRow; ++y) {
      bridging.alongRow(y);
    }
  });
  parallelRows((size.width + columnBlock - 1) / columnBlock, [&](int firstBlock, int endBlock) {
    Bridging bridging(settings, codes, buffers);
    for (int block = firstBlock; block < endBlock; ++block) {
      bridging.alongColumns(block * columnBlock);
    }
  });
}

} // namespace vorn::mv::sl
