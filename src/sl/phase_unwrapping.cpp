// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase_unwrapping.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "sl/phase_rows.hpp"
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

/// Adds 2π·code to the phases of trusted pixels.
VORN_TARGET_CLONES
void addOrders(uchar const* state, std::int16_t const* code, int length, float* __restrict phase) {
  for (int x = 0; x < length; ++x) {
    int const order = state[x] == unwrapped ? code[x] : -1;
    float const absolute = phase[x] + static_cast<float>(order) * twoPiFloat;
    phase[x] = order >= 0 ? absolute : phase[x];
  }
}

/// Marks with 1 the pixels that seeding must look at one by one: those marked trusted that have no code, or
/// that may have an unreached neighbour when their turn comes. `state` and `code` are read from -1 to
/// `length`.
VORN_TARGET_CLONES
void markSeeding(uchar const* upper, uchar const* state, uchar const* lower, std::int16_t const* code,
                 int length, uchar* __restrict marks) {
  for (int x = 0; x < length; ++x) {
    bool const isEdge = (upper[x] == unreached) | (lower[x] == unreached) | (state[x - 1] == unreached) |
                        (state[x + 1] == unreached) | (code[x] < 0) | (code[x - 1] < 0);
    marks[x] = static_cast<uchar>((state[x] == unwrapped) & isEdge);
  }
}

/// Marks with 1 the pixels that growth may change.
VORN_TARGET_CLONES
void markOpen(uchar const* state, int length, uchar* __restrict marks) {
  for (int x = 0; x < length; ++x) {
    marks[x] = static_cast<uchar>((state[x] == unreached) | (state[x] == waiting));
  }
}

/// Calls visit(x) for every x with marks[x] set, in order. `marks` is a multiple of eight bytes long.
template <class Visit>
void forEachMark(std::vector<uchar> const& marks, Visit const& visit) {
  for (std::size_t word = 0; word < marks.size(); word += sizeof(std::uint64_t)) {
    std::uint64_t any = 0;
    std::memcpy(&any, marks.data() + word, sizeof(any));
    for (std::size_t x = word; any != 0 && x < word + sizeof(any); ++x) {
      if (marks[x] != 0) {
        visit(static_cast<int>(x));
      }
    }
  }
}

using Waiting = UnwrapScratch::Waiting;

struct HasLessQuality {
  bool operator()(Waiting const& a, Waiting const& b) const { return a.quality < b.quality; }
};

/// std::floor, inline: growth asks for it four times a pixel.
float floorOf(float value) {
  constexpr float allAreIntegersFrom = 8388608.0F; // 2^23
  if (!(std::abs(value) < allAreIntegersFrom)) {
    return value;
  }
  auto const truncated = static_cast<float>(static_cast<int>(value));
  return truncated - (truncated > value ? 1.0F : 0.0F);
}

/// One unwrapping.
///
/// Growth in one region of connected pixels without a phase never sees another region, so each region is
/// grown on its own. One queue over the whole image would take the pixels of a region in the same order but
/// jump between regions at every step, which costs ten times the time in cache misses.
class Unwrapper {
public:
  Unwrapper(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
            cv::Mat const& mask, UnwrapScratch& scratch)
      : phase_(phase), quality_(quality), state_(state), code_(code), mask_(mask), hasMask_(!mask.empty()),
        scratch_(scratch), lastRow_(phase.rows - 2), lastColumn_(phase.cols - 2) {
    while ((std::int64_t{1} << columnBits_) < phase.cols) {
      ++columnBits_;
    }
    if ((static_cast<std::uint64_t>(phase.rows) << columnBits_) > std::uint64_t{1} << 32U) {
      throw std::invalid_argument("The phase map has more pixels than 32 bits can number");
    }
  }

  void run() {
    if (lastRow_ < 1 || lastColumn_ < 1) {
      return;
    }
    constexpr std::size_t word = sizeof(std::uint64_t);
    scratch_.marks.assign((static_cast<std::size_t>(phase_.cols) + word - 1) / word * word, 0);
    scratch_.seeds.clear();
    for (int row = 1; row <= lastRow_; ++row) {
      seedRow(row);
    }
    if (!scratch_.seeds.empty()) {
      labelRegions();
      sortSeedsByRegion();
      growRegions();
    }
  }

private:
  std::uint32_t pixelAt(int row, int column) const {
    return static_cast<std::uint32_t>(row) << columnBits_ | static_cast<std::uint32_t>(column);
  }
  int rowOf(std::uint32_t pixel) const { return static_cast<int>(pixel >> columnBits_); }
  int columnOf(std::uint32_t pixel) const { return static_cast<int>(pixel & ((1U << columnBits_) - 1U)); }

  bool isMasked(int row, int column) const { return hasMask_ && mask_.ptr<uchar>(row)[column] == 0; }

  uchar& stateAt(int row, int column) const { return state_.ptr<uchar>(row)[column]; }

  /// Calls visit(row, column) for the neighbours that are no border pixels: left, right, upper, lower.
  template <class Visit>
  void forNeighbours(int row, int column, Visit const& visit) const {
    if (column > 1) {
      visit(row, column - 1);
    }
    if (column < lastColumn_) {
      visit(row, column + 1);
    }
    if (row > 1) {
      visit(row - 1, column);
    }
    if (row < lastRow_) {
      visit(row + 1, column);
    }
  }

  void seedRow(int row) {
    int const inner = lastColumn_;
    uchar const* const state = state_.ptr<uchar>(row) + 1;
    std::int16_t const* const code = code_.ptr<std::int16_t>(row) + 1;
    addOrders(state, code, inner, phase_[row] + 1);
    markSeeding(state_.ptr<uchar>(row - 1) + 1, state, state_.ptr<uchar>(row + 1) + 1, code, inner,
                scratch_.marks.data() + 1);
    if (hasMask_) {
      rejectMasked(mask_.ptr<uchar>(row) + 1, inner, phase_[row] + 1);
    }
    forEachMark(scratch_.marks, [&](int column) {
      if (!isMasked(row, column)) {
        seed(row, column);
      }
    });
  }

  /// Takes a pixel that the caller trusts: without a code it is to be reached by growth, else growth starts
  /// beside it.
  void seed(int row, int column) {
    if (code_.ptr<std::int16_t>(row)[column] < 0) {
      stateAt(row, column) = unreached;
      return;
    }
    forNeighbours(row, column, [this](int r, int c) {
      if (stateAt(r, c) == unreached) {
        stateAt(r, c) = waiting;
        scratch_.seeds.push_back({quality_[r][c], pixelAt(r, c)});
      }
    });
  }

  /// The label that stands for the region of `label`.
  std::uint32_t regionOf(std::uint32_t label) {
    std::vector<std::uint32_t>& parents = scratch_.parents;
    while (parents[label] != label) {
      parents[label] = parents[parents[label]];
      label = parents[label];
    }
    return label;
  }

  /// Labels the pixels without a phase so that connected ones have labels of one region.
  void labelRegions() {
    scratch_.parents.clear();
    scratch_.labels.create(phase_.size());
    for (int row = 1; row <= lastRow_; ++row) {
      markOpen(state_.ptr<uchar>(row) + 1, lastColumn_, scratch_.marks.data() + 1);
      uchar const* const upper = state_.ptr<uchar>(row - 1);
      std::int32_t* const labels = scratch_.labels[row];
      std::int32_t const* const upperLabels = scratch_.labels[row - 1];
      int previous = 0;
      forEachMark(scratch_.marks, [&](int x) {
        bool const isRun = x > 1 && previous == x - 1;
        bool const isBelow = row > 1 && (upper[x] == unreached || upper[x] == waiting);
        previous = x;
        if (isRun && isBelow) {
          unite(labels[x - 1], upperLabels[x]);
        }
        if (isRun) {
          labels[x] = labels[x - 1];
        } else {
          labels[x] = isBelow ? upperLabels[x] : newLabel();
        }
      });
    }
  }

  std::int32_t newLabel() {
    auto const label = static_cast<std::uint32_t>(scratch_.parents.size());
    scratch_.parents.push_back(label);
    return static_cast<std::int32_t>(label);
  }

  void unite(std::int32_t a, std::int32_t b) {
    std::uint32_t const regionA = regionOf(static_cast<std::uint32_t>(a));
    std::uint32_t const regionB = regionOf(static_cast<std::uint32_t>(b));
    scratch_.parents[std::max(regionA, regionB)] = std::min(regionA, regionB);
  }

  std::uint32_t regionOfPixel(std::uint32_t pixel) {
    return regionOf(static_cast<std::uint32_t>(scratch_.labels[rowOf(pixel)][columnOf(pixel)]));
  }

  /// A counting sort: the seeds of region k become regionSeeds[starts[k]] to regionSeeds[starts[k + 1] - 1].
  void sortSeedsByRegion() {
    std::vector<std::uint32_t>& starts = scratch_.starts;
    starts.assign(scratch_.parents.size() + 2, 0);
    for (Waiting const& seed : scratch_.seeds) {
      ++starts[regionOfPixel(seed.pixel) + 2];
    }
    for (std::size_t k = 2; k < starts.size(); ++k) {
      starts[k] += starts[k - 1];
    }
    // starts[k + 1] runs from the start of region k to its end, which is the start of the next one.
    scratch_.regionSeeds.resize(scratch_.seeds.size());
    for (Waiting const& seed : scratch_.seeds) {
      scratch_.regionSeeds[starts[regionOfPixel(seed.pixel) + 1]++] = seed;
    }
  }

  void growRegions() const {
    std::vector<std::uint32_t> const& starts = scratch_.starts;
    parallelRows(static_cast<int>(scratch_.parents.size()), [&](int firstRegion, int endRegion) {
      std::vector<Waiting> heap;
      for (auto k = static_cast<std::size_t>(firstRegion); k < static_cast<std::size_t>(endRegion); ++k) {
        for (std::uint32_t i = starts[k]; i < starts[k + 1]; ++i) {
          push(heap, scratch_.regionSeeds[i]);
        }
        while (!heap.empty()) {
          std::pop_heap(heap.begin(), heap.end(), HasLessQuality());
          std::uint32_t const pixel = heap.back().pixel;
          heap.pop_back();
          if (!heap.empty()) {
            prefetch(heap.front().pixel);
          }
          grow(heap, rowOf(pixel), columnOf(pixel));
        }
      }
    });
  }

  /// A tall region has a memory page a row: without this every visit would wait for the translation of
  /// addresses.
  void prefetch(std::uint32_t pixel) const {
    int const row = rowOf(pixel);
    int const column = columnOf(pixel);
    for (int r = row - 1; r <= row + 1; ++r) {
      __builtin_prefetch(state_.ptr<uchar>(r) + column);
      __builtin_prefetch(phase_[r] + column);
    }
  }

  static void push(std::vector<Waiting>& heap, Waiting const& entry) {
    heap.push_back(entry);
    std::push_heap(heap.begin(), heap.end(), HasLessQuality());
  }

  /// Gives a waiting pixel the fringe order that fits one of its unwrapped neighbours best.
  void grow(std::vector<Waiting>& heap, int row, int column) const {
    float& phase = phase_[row][column];
    float const wrapped = phase;
    float best = rejected;
    float bestDistance = 9999.0F;
    forNeighbours(row, column, [&](int r, int c) {
      float const absolute = phase_[r][c];
      float const order = floorOf(static_cast<float>((absolute - wrapped) / twoPi + 0.5));
      float const candidate = order * twoPiFloat + wrapped;
      float const distance = std::abs(candidate - absolute);
      // Which neighbours are unwrapped is as good as random: selecting is cheaper than branching.
      bool const isBetter = (stateAt(r, c) == unwrapped) & (distance < bestDistance);
      bestDistance = isBetter ? distance : bestDistance;
      best = isBetter ? candidate : best;
    });
    if (bestDistance >= piFloat) {
      phase = rejected;
      return;
    }
    phase = best;
    stateAt(row, column) = unwrapped;
    forNeighbours(row, column, [&](int r, int c) {
      if (stateAt(r, c) == unreached && !isMasked(r, c)) {
        stateAt(r, c) = waiting;
        push(heap, {quality_[r][c], pixelAt(r, c)});
      }
    });
  }

  cv::Mat_<float>& phase_;
  cv::Mat_<float> const& quality_;
  cv::Mat& state_;
  cv::Mat const& code_;
  cv::Mat const& mask_;
  bool hasMask_;
  UnwrapScratch& scratch_;
  int lastRow_;
  int lastColumn_;
  unsigned int columnBits_ = 0; ///< a pixel's number is row << columnBits | column
};

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
