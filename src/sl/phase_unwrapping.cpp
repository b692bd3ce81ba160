// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase_unwrapping.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "core/simd.hpp"
#include "sl/stack_checks.hpp"

namespace vorn::mv {

namespace {

constexpr double twoPi = 6.283185307179586;
constexpr float twoPiFloat = 6.2831855F;
constexpr float piFloat = 3.1415927F;
constexpr float rejected = -1.0F;

constexpr uchar unreached = 0;
constexpr uchar waiting = 95;
constexpr uchar unwrapped = 255;

struct Pixel {
  int row;
  int column;
};

/// The maps of one unwrapping.
class Unwrapper {
public:
  Unwrapper(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
            cv::Mat const& mask, UnwrapScratch& scratch)
      : phase_(phase), quality_(quality), state_(state), code_(code), mask_(mask), scratch_(scratch),
        lastRow_(phase.rows - 2), lastColumn_(phase.cols - 2) {}

  void run() {
    scratch_.heap.clear();
    for (int row = 1; row <= lastRow_; ++row) {
      for (int column = 1; column <= lastColumn_; ++column) {
        seed({row, column});
      }
    }
    while (!scratch_.heap.empty()) {
      grow(scratch_.heap.pop().pixel);
    }
  }

private:
  bool isInside(Pixel p) const {
    return p.row >= 1 && p.row <= lastRow_ && p.column >= 1 && p.column <= lastColumn_;
  }

  bool isMasked(Pixel p) const { return !mask_.empty() && mask_.ptr<uchar>(p.row)[p.column] == 0; }

  uchar& stateAt(Pixel p) { return state_.ptr<uchar>(p.row)[p.column]; }

  template <class Visit>
  static void forNeighbours(Pixel p, Visit const& visit) {
    visit(Pixel{p.row, p.column - 1});
    visit(Pixel{p.row, p.column + 1});
    visit(Pixel{p.row - 1, p.column});
    visit(Pixel{p.row + 1, p.column});
  }

  void enqueue(Pixel p) {
    auto const columns = static_cast<std::uint32_t>(phase_.cols);
    auto const pixel = static_cast<std::uint32_t>(p.row) * columns + static_cast<std::uint32_t>(p.column);
    scratch_.heap.push({quality_(p.row, p.column), pixel});
    stateAt(p) = waiting;
  }

  void seed(Pixel p) {
    if (isMasked(p)) {
      phase_(p.row, p.column) = rejected;
      return;
    }
    if (stateAt(p) != unwrapped) {
      return;
    }
    int const code = code_.ptr<std::int16_t>(p.row)[p.column];
    if (code < 0) {
      stateAt(p) = unreached;
      return;
    }
    float& phase = phase_(p.row, p.column);
    phase = phase + static_cast<float>(code) * twoPiFloat;
    forNeighbours(p, [this](Pixel n) {
      if (isInside(n) && stateAt(n) == unreached) {
        enqueue(n);
      }
    });
  }

  void grow(std::uint32_t pixel) {
    auto const columns = static_cast<std::uint32_t>(phase_.cols);
    Pixel const p{static_cast<int>(pixel / columns), static_cast<int>(pixel % columns)};
    float const wrapped = phase_(p.row, p.column);
    float best = rejected;
    float bestDistance = 9999.0F;
    forNeighbours(p, [&](Pixel n) {
      if (!isInside(n) || stateAt(n) != unwrapped) {
        return;
      }
      float const absolute = phase_(n.row, n.column);
      float const order = std::floor(static_cast<float>((absolute - wrapped) / twoPi + 0.5));
      float const candidate = order * twoPiFloat + wrapped;
      float const distance = std::abs(candidate - absolute);
      if (distance < bestDistance) {
        bestDistance = distance;
        best = candidate;
      }
    });
    if (bestDistance >= piFloat) {
      phase_(p.row, p.column) = rejected;
      return;
    }
    phase_(p.row, p.column) = best;
    stateAt(p) = unwrapped;
    forNeighbours(p, [this](Pixel n) {
      if (isInside(n) && stateAt(n) == unreached && !isMasked(n)) {
        enqueue(n);
      }
    });
  }

  cv::Mat_<float>& phase_;
  cv::Mat_<float> const& quality_;
  cv::Mat& state_;
  cv::Mat const& code_;
  cv::Mat const& mask_;
  UnwrapScratch& scratch_;
  int lastRow_;
  int lastColumn_;
};

void requireCountable(cv::Size size) {
  if (static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height) >
      std::numeric_limits<std::uint32_t>::max()) {
    throw std::invalid_argument("The phase map has more than 2^32 - 1 pixels");
  }
}

} // namespace

void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask, UnwrapScratch& scratch) {
  if (phase.empty()) {
    return;
  }
  cv::Size const size = phase.size();
  requireMap(phase, "phase map", CV_32FC1, size);
  requireMap(quality, "quality map", CV_32FC1, size);
  requireMap(state, "state map", CV_8UC1, size);
  requireMap(code, "code map", CV_16SC1, size);
  requireMask(mask, size);
  requireCountable(size);
  cv::Mat_<float> const fixedQuality = mayOverlap(quality, phase) ? quality.clone() : quality;
  cv::Mat const fixedMask = mayOverlap(mask, state) ? mask.clone() : mask;
  Unwrapper(phase, fixedQuality, state, code, fixedMask, scratch).run();
}

void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask) {
  UnwrapScratch scratch;
  unwrap_phase(phase, quality, state, code, mask, scratch);
}

} // namespace vorn::mv
