// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/unwrap_seeding.hpp"

#include <utility>

#include "core/pi.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

constexpr float rejected = -1.0F;

VORN_TARGET_CLONES
void markSources(uchar const* state, std::int16_t const* code, uchar const* mask, int length,
                 uchar* __restrict sources) {
  for (int x = 0; x < length; ++x) {
    sources[x] = static_cast<uchar>((state[x] == unwrap_state::unwrapped) & (code[x] >= 0) & (mask[x] != 0));
  }
}

/// Adds 2π·code at the sources; masked-out pixels become -1.
VORN_TARGET_CLONES
void addOrders(uchar const* sources, std::int16_t const* code, uchar const* mask, int length,
               float* __restrict phase) {
  for (int x = 0; x < length; ++x) {
    float const absolute = phase[x] + static_cast<float>(code[x]) * twoPiFloat;
    float const kept = sources[x] != 0 ? absolute : phase[x];
    phase[x] = mask[x] != 0 ? kept : rejected;
  }
}

/// Settles the states of a row. Pixels take their turn in row order, so a trusted pixel without a code is
/// unreached only for the sources after it. `own` is read from -1 to `length`.
VORN_TARGET_CLONES
void settleStates(uchar const* upper, uchar const* own, uchar const* lower, uchar const* mask, int length,
                  uchar* __restrict state, uchar* __restrict open) {
  for (int x = 0; x < length; ++x) {
    uchar const before = state[x];
    auto const sourcesAfter = static_cast<uchar>(own[x + 1] | lower[x]);
    auto const sources = static_cast<uchar>(own[x - 1] | upper[x] | sourcesAfter);
    bool const isUnmasked = mask[x] != 0;
    bool const hasNoCode = (before == unwrap_state::unwrapped) & (own[x] == 0) & isUnmasked;
    bool const isUnreached = before == unwrap_state::unreached;
    bool const isWaiting = (isUnreached & (sources != 0)) | (hasNoCode & (sourcesAfter != 0));
    uchar const settled = hasNoCode ? unwrap_state::unreached : before;
    state[x] = isWaiting ? unwrap_state::waiting : settled;
    open[x] = static_cast<uchar>(isWaiting | ((isUnreached | hasNoCode) & isUnmasked));
  }
}

} // namespace

UnwrapSeeding::UnwrapSeeding(UnwrapMaps const& maps) : maps_(maps) {
  constexpr std::size_t word = sizeof(std::uint64_t);
  auto const columns = static_cast<std::size_t>(maps.phase.cols);
  if (maps.mask.empty()) {
    everything_.assign(columns, 1);
  }
  upper_.assign(columns, 0);
  own_.assign(columns, 0);
  lower_.assign(columns, 0);
  open_.assign((columns + word - 1) / word * word, 0);
  findSources(1, lower_);
}

uchar const* UnwrapSeeding::maskRow(int row) const {
  return maps_.mask.empty() ? everything_.data() : maps_.mask.ptr<uchar>(row);
}

void UnwrapSeeding::findSources(int row, std::vector<uchar>& sources) const {
  markSources(maps_.state.ptr<uchar>(row) + 1, maps_.code.ptr<std::int16_t>(row) + 1, maskRow(row) + 1,
              maps_.phase.cols - 2, sources.data() + 1);
}

std::vector<uchar> const& UnwrapSeeding::nextRow() {
  ++row_;
  upper_.swap(own_);
  own_.swap(lower_);
  if (row_ + 1 < maps_.phase.rows - 1) {
    findSources(row_ + 1, lower_);
  } else {
    lower_.assign(lower_.size(), 0);
  }
  int const inner = maps_.phase.cols - 2;
  uchar const* const mask = maskRow(row_) + 1;
  addOrders(own_.data() + 1, maps_.code.ptr<std::int16_t>(row_) + 1, mask, inner, maps_.phase[row_] + 1);
  settleStates(upper_.data() + 1, own_.data() + 1, lower_.data() + 1, mask, inner,
               maps_.state.ptr<uchar>(row_) + 1, open_.data() + 1);
  return open_;
}

} // namespace vorn::mv
