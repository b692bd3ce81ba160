// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/doubtful_growth.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/simd.hpp"
#include "sl/decode/absolute_phase.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int bandRows = 128;
constexpr int bandsBetweenAskings = 8;

/// The absolute phases of a row and of those beside it.
struct PhaseRows {
  float const* above;
  float const* own;
  float const* below;
};

/// Marks with 1 the grown pixels of a row that lie beside a jump, and the others with 0. Comparisons with an
/// unknown phase, a NaN, are false.
VORN_TARGET_CLONES
void markJumps(PhaseRows const& rows, uchar const* state, int n, uchar* __restrict marks) {
  float const* const above = rows.above;
  float const* const own = rows.own;
  float const* const below = rows.below;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const p = own[x];
    bool const isJump = (std::fabs(own[x - 1] - p) > surfaceJump) |
                        (std::fabs(own[x + 1] - p) > surfaceJump) | (std::fabs(above[x] - p) > surfaceJump) |
                        (std::fabs(below[x] - p) > surfaceJump);
    marks[x] = isJump & (state[x] == pixel_state::grown) ? 1 : 0;
  }
}

/// The pixels of the whole maps, numbered row by row, and bands of their rows.
class DoubtfulGrowth {
public:
  explicit DoubtfulGrowth(ScanMaps& maps)
      : maps_(maps), state_(maps.state.whole[0]), columns_(maps.state.whole.cols),
        bands_(static_cast<std::size_t>((maps.size().height + bandRows - 1) / bandRows)) {}

  int bands() const { return static_cast<int>(bands_.size()); }

  /// Lists the pixels of a band beside a jump; changes nothing.
  void findJumps(int band) {
    std::array<std::vector<float>, 3> phases;
    phases.fill(std::vector<float>(static_cast<std::size_t>(columns_)));
    std::vector<uchar> marks(static_cast<std::size_t>(columns_));
    std::array<int, 3> held{-1, -1, -1};
    auto const phasesOf = [&](int row) {
      auto const slot = static_cast<std::size_t>(row) % phases.size();
      if (held[slot] != row) {
        absoluteRow(maps_.wrapped.whole[row], maps_.order.whole[row], maps_.state.whole[row], columns_,
                    phases[slot].data());
        held[slot] = row;
      }
      return phases[slot].data() + pad;
    };
    int const inner = columns_ - 2 * pad;
    for (int row = firstRow(band); row < firstRow(band + 1); ++row) {
      uchar const* const state = maps_.state.whole[row] + pad;
      if (std::memchr(state, pixel_state::grown, static_cast<std::size_t>(inner)) == nullptr) {
        continue;
      }
      markJumps({phasesOf(row - 1), phasesOf(row), phasesOf(row + 1)}, state, inner, marks.data());
      auto const end = marks.begin() + inner;
      for (auto at = std::find(marks.begin(), end, 1); at != end; at = std::find(at + 1, end, 1)) {
        of(band).doubtful.push_back(indexOf(row, pad + static_cast<int>(at - marks.begin())));
      }
    }
  }

  /// Closes what hangs together with the listed pixels inside the band; changes no other.
  void dropInside(int band) {
    Band& own = of(band);
    std::uint32_t const second = indexOf(firstRow(band) + 1, 0);
    std::uint32_t const last = indexOf(firstRow(band + 1) - 1, 0);
    drop(own.doubtful, [&](std::uint32_t index, auto const& visit) {
      bool const isInFirst = index < second;
      bool const isInLast = index >= last;
      if (isInFirst || isInLast) {
        own.atSeams.push_back(index);
      }
      visitRow(index, visit);
      if (!isInFirst) {
        visitRow(index - stride(), visit);
      }
      if (!isInLast) {
        visitRow(index + stride(), visit);
      }
    });
  }

  /// Closes what hangs together with closed pixels beyond the border of its band.
  void dropAcross() {
    for (Band& band : bands_) {
      for (std::uint32_t const index : band.atSeams) {
        state_[index] = pixel_state::grown;
      }
      drop(band.atSeams, [&](std::uint32_t index, auto const& visit) {
        visitRow(index - stride(), visit);
        visitRow(index, visit);
        visitRow(index + stride(), visit);
      });
    }
  }

private:
  static constexpr int pad = PaddedMap<uchar>::pad;

  struct Band {
    std::vector<std::uint32_t> doubtful; ///< grown pixels beside a jump
    std::vector<std::uint32_t> atSeams;  ///< closed pixels of the band's first and last row
  };

  Band& of(int band) { return bands_[static_cast<std::size_t>(band)]; }
  int firstRow(int band) const { return pad + std::min(band * bandRows, maps_.size().height); }
  std::uint32_t stride() const { return static_cast<std::uint32_t>(columns_); }
  std::uint32_t indexOf(int row, int column) const {
    return static_cast<std::uint32_t>(row) * stride() + static_cast<std::uint32_t>(column);
  }

  template <class Visit>
  static void visitRow(std::uint32_t middle, Visit const& visit) {
    visit(middle - 1);
    visit(middle);
    visit(middle + 1);
  }

  /// Closes grown pixels, and all that `spread(index, visit)` visits from each one that it closes.
  template <class Spread>
  void drop(std::vector<std::uint32_t> const& from, Spread const& spread) {
    std::vector<std::uint32_t> open;
    auto const visit = [&](std::uint32_t index) {
      if (state_[index] == pixel_state::grown) {
        state_[index] = pixel_state::noCode;
        open.push_back(index);
      }
    };
    for (std::uint32_t const first : from) {
      visit(first);
      while (!open.empty()) {
        std::uint32_t const index = open.back();
        open.pop_back();
        spread(index, visit);
      }
    }
  }

  ScanMaps& maps_;
  uchar* state_;
  int columns_;
  std::vector<Band> bands_;
};

} // namespace

void dropDoubtfulGrowth(ScanMaps& maps, Progress const& progress) {
  DoubtfulGrowth growth(maps);
  auto const inBands = [&](Progress const& part, auto const& work) {
    parallelRows(growth.bands(), bandsBetweenAskings, part, "unwrapping", [&](int first, int end) {
      for (int band = first; band < end; ++band) {
        work(band);
      }
    });
  };
  inBands(progress.part(0.0, 0.5), [&](int band) { growth.findJumps(band); });
  inBands(progress.part(0.5, 1.0), [&](int band) { growth.dropInside(band); });
  growth.dropAcross();
}

} // namespace vorn::mv::sl
