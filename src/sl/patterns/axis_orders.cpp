// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Which order of its fringe every pixel has by itself.
#include <algorithm>
#include <cmath>

#include "core/pi.hpp"
#include "sl/patterns/axis_decoding.hpp"

namespace vorn::mv::sl {

float AxisDecoding::noiseAt(int row, int x) const {
  return noise_.at(reading_.fringe(fringes_[0].index).level(row, x));
}

/// The fringes of a row, in turns.
void AxisDecoding::loadSamples(int row, Room& room) {
  room.samples.turns.resize(fringes_.size());
  room.samples.sigma.resize(fringes_.size());
  room.samples.periods.resize(fringes_.size());
  constexpr float perTurn = 1.0F / twoPiFloat;
  for (std::size_t i = 0; i < fringes_.size(); ++i) {
    FringeMaps const& maps = reading_.fringe(fringes_[i].index);
    auto const width = static_cast<std::size_t>(maps.phase.cols);
    room.samples.periods[i] = static_cast<double>(plan_.fringes[fringes_[i].index].fringe.period);
    room.samples.turns[i].resize(width);
    room.samples.sigma[i].resize(width);
    float const* const phase = maps.phase[row];
    float const* const precision = maps.precision[row];
    uchar const* const level = maps.level[row];
    StepError const& error = fringes_[i].error;
    for (std::size_t x = 0; x < width; ++x) {
      float const turns = phase[x] * perTurn;
      room.samples.turns[i][x] = turns;
      if (error.steps != 0 && turns >= 0.0F) {
        float const right = turns - static_cast<float>(error.at(static_cast<double>(turns)));
        room.samples.turns[i][x] = right - std::floor(right);
      }
      room.samples.sigma[i][x] = noise_.at(level[x]) * perTurn / std::max(precision[x], 1e-6F);
    }
  }
}

/// Of several exposures, that one counts whose bits are farthest from their thresholds.
void AxisDecoding::loadCode(int row, RowCode& code) const {
  CodeMaps const& first = reading_.code(codes_[0]);
  auto const width = static_cast<std::size_t>(first.word.cols);
  auto const* const word = first.word.ptr<std::uint32_t>(row);
  code.word.assign(word, word + width);
  code.weakest.assign(first.weakest[row], first.weakest[row] + width);
  code.margin.assign(first.margin[row], first.margin[row] + width);
  code.second.assign(first.second[row], first.second[row] + width);
  for (std::size_t i = 1; i < codes_.size(); ++i) {
    CodeMaps const& other = reading_.code(codes_[i]);
    for (std::size_t x = 0; x < width; ++x) {
      auto const at = static_cast<int>(x);
      if (other.second(row, at) > code.second[x]) {
        code.word[x] = other.word.ptr<std::uint32_t>(row)[x];
        code.weakest[x] = other.weakest(row, at);
        code.margin[x] = other.margin(row, at);
        code.second[x] = other.second(row, at);
      }
    }
  }
}

CodePlace AxisDecoding::placeOf(RowCode const& code, std::size_t x, float certain) const {
  return words_[0].place(code.word[x], code.weakest[x], code.margin[x] > certain, code.second[x] > certain);
}

/// Why a pixel has no fringe; `open` when it has.
uchar AxisDecoding::closedState(int row, int x) const {
  uchar state = pixel_state::open;
  for (Own const& own : fringes_) {
    float const precision = reading_.fringe(own.index).precision(row, x);
    if (precision <= 0.0F) {
      return reading_.fringe(own.index).phase(row, x) < 0.0F ? pixel_state::clipped : pixel_state::dark;
    }
    if (!(precision * own.amplitudeOfPrecision >= least_)) {
      state = pixel_state::dark;
    }
  }
  return state;
}

/// From the stripe to the fringe that is at least as wide, and from there to ever finer ones.
bool AxisDecoding::orderByCode(Room const& room, std::size_t x, float noise, int& order) const {
  CodePlace const place = placeOf(room.code, x, certainDeviations * noise);
  if (place.kind == CodePlace::Unknown) {
    return false;
  }
  std::size_t i = codeFringe_;
  float const period = fringes_[i].period;
  auto const nearest = [](float value) { return std::nearbyint(value); };
  float turns = room.samples.turns[i][x];
  float whole = nearest(place.position / period - turns);
  float coordinate = period * (turns + whole);
  // What blur does to the edges of stripes is some tenths of a projector pixel.
  constexpr float mostGuard = 0.1F;
  constexpr float beyondEdge = 0.2F;
  float const guard = std::min(mostGuard * period, 1.0F + 0.02F * period);
  float const reach = 0.5F * period - guard - 3.0F * period * room.samples.sigma[i][x];
  float const limit = place.kind == CodePlace::Border
                          ? reach
                          : std::min(reach, 0.5F * words_[0].cell() + beyondEdge * period);
  if (std::fabs(coordinate - place.position) > limit) {
    return false;
  }
  while (i > 0) {
    --i;
    turns = room.samples.turns[i][x];
    float const exact = coordinate / fringes_[i].period - turns;
    whole = nearest(exact);
    constexpr float mostRest = 0.3F;
    if (std::fabs(exact - whole) > mostRest) {
      return false;
    }
    coordinate = fringes_[i].period * (turns + whole);
  }
  order = static_cast<int>(whole);
  return true;
}

bool AxisDecoding::orderBySearch(Room const& room, std::size_t x, int& order) {
  // Odds of 20 000 to 1 against the next best, and not far from it by itself.
  constexpr float clearGap = 20.0F;
  constexpr float mostCost = 100.0F;
  order = room.found.order[x];
  return room.samples.periods.size() == 1 ||
         (room.found.gap[x] >= clearGap && room.found.cost[x] <= mostCost);
}

void AxisDecoding::decideRow(int row, Room& room, ScanMaps& maps) {
  loadSamples(row, room);
  int const width = maps.size().width;
  if (!words_.empty()) {
    loadCode(row, room.code);
  } else if (fringes_.size() > 1) {
    searchOrders(room.samples, resolution_, width, room.found);
  }
  FringeMaps const& finest = reading_.fringe(fringes_[0].index);
  float* const wrapped = maps.wrapped.inner[row];
  short* const orders = maps.order.inner[row];
  uchar* const state = maps.state.inner[row];
  for (int x = 0; x < width; ++x) {
    orders[x] = noOrder;
    state[x] = closedState(row, x);
    float const phase = room.samples.turns[0][static_cast<std::size_t>(x)] * twoPiFloat;
    wrapped[x] = state[x] == pixel_state::clipped ? noPhase : phase;
    if (!pixel_state::isOpen(state[x])) {
      continue;
    }
    auto const at = static_cast<std::size_t>(x);
    int order = 0;
    if (!words_.empty()) {
      // Lit pixels are noisier than the mean of a fringe.
      auto const level = static_cast<uchar>(std::min(levelBins - 1, 2 * finest.level(row, x) + 1));
      float const noise = std::max(noiseAt(row, x), noise_.at(level));
      if (!orderByCode(room, at, noise, order)) {
        continue;
      }
    } else if (fringes_.size() > 1) {
      if (!orderBySearch(room, at, order)) {
        continue;
      }
    }
    if (order >= 0) {
      orders[x] = static_cast<short>(order);
      state[x] = pixel_state::trusted;
    } else {
      state[x] = pixel_state::noCode;
    }
  }
}

} // namespace vorn::mv::sl
