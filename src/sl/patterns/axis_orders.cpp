// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Which order of its fringe every pixel has by itself, and what coordinate comes of it.
#include <algorithm>
#include <cmath>
#include <limits>

#include "core/pi.hpp"
#include "core/simd.hpp"
#include "sl/patterns/axis_decoding.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float unknown = -1.0F;

/// The coordinates from 0 to `last`, and their standard deviations.
VORN_TARGET_CLONES
void knownOfRow(float const* coordinate, float const* weights, float last, int n,
                float* __restrict coordinates, float* __restrict sigma) {
  for (int x = 0; x < n; ++x) {
    float const own = coordinate[x];
    float const deviation = 1.0F / std::sqrt(weights[x]);
    bool const isKnown = (own >= 0.0F) & (own <= last);
    coordinates[x] = isKnown ? own : unknown;
    sigma[x] = isKnown ? deviation : std::numeric_limits<float>::quiet_NaN();
  }
}

} // namespace

void AxisDecoding::Room::resize(int n) {
  auto const size = static_cast<std::size_t>(n);
  for (std::vector<int>* of : {&state, &flags, &kind, &lean, &other}) {
    of->resize(size);
  }
  for (std::vector<float>* of : {&certain, &position, &coordinate, &order, &ownSigma, &weights, &shifts}) {
    of->resize(size);
  }
}

PlaceRow AxisDecoding::Room::places() {
  return {kind.data(), position.data(), lean.data(), other.data()};
}

FringeRow AxisDecoding::fringeRow(Room const& room, std::size_t fringe) const {
  return {room.samples.turns[fringe].data(), room.samples.sigma[fringe].data(), fringes_[fringe].period};
}

/// The fringes of a row, in turns.
void AxisDecoding::loadSamples(int row, Room& room) {
  room.samples.turns.resize(fringes_.size());
  room.samples.sigma.resize(fringes_.size());
  room.samples.periods.resize(fringes_.size());
  for (std::size_t i = 0; i < fringes_.size(); ++i) {
    FringeMaps const& maps = reading_.fringe(fringes_[i].index);
    int const n = maps.phase.cols;
    room.resize(n);
    room.samples.periods[i] = static_cast<double>(plan_.fringes[fringes_[i].index].fringe.period);
    std::vector<float>& turns = room.samples.turns[i];
    turns.resize(static_cast<std::size_t>(n));
    room.samples.sigma[i].resize(static_cast<std::size_t>(n));
    phaseInTurns(maps.phase[row], n, turns.data());
    phaseSigma(maps.precision[row], maps.level[row], noiseInTurns_, n, room.samples.sigma[i].data());
    StepError const& error = fringes_[i].error;
    if (error.steps == 0) {
      continue;
    }
    for (float& turn : turns) {
      if (turn >= 0.0F) {
        float const right = turn - static_cast<float>(error.at(static_cast<double>(turn)));
        turn = right - std::floor(right);
      }
    }
  }
}

/// Of several exposures, that one counts whose bits are farthest from their thresholds.
void AxisDecoding::loadCode(int row, RowCode& code) const {
  auto const rowOf = [row](CodeMaps const& maps) {
    return WordRow{maps.word.ptr<std::uint32_t>(row), maps.weakest[row], maps.margin[row], maps.second[row]};
  };
  code.row = rowOf(reading_.code(codes_[0]));
  if (codes_.size() == 1) {
    return;
  }
  auto const width = static_cast<std::size_t>(reading_.code(codes_[0]).word.cols);
  code.word.assign(code.row.word, code.row.word + width);
  code.weakest.assign(code.row.weakest, code.row.weakest + width);
  code.margin.assign(code.row.margin, code.row.margin + width);
  code.second.assign(code.row.second, code.row.second + width);
  for (std::size_t i = 1; i < codes_.size(); ++i) {
    WordRow const other = rowOf(reading_.code(codes_[i]));
    for (std::size_t x = 0; x < width; ++x) {
      if (other.second[x] > code.second[x]) {
        code.word[x] = other.word[x];
        code.weakest[x] = other.weakest[x];
        code.margin[x] = other.margin[x];
        code.second[x] = other.second[x];
      }
    }
  }
  code.row = {code.word.data(), code.weakest.data(), code.margin.data(), code.second.data()};
}

/// Why pixels have no fringe; `open` when they have.
void AxisDecoding::closeStates(int row, Room& room) const {
  std::fill(room.state.begin(), room.state.end(), static_cast<int>(pixel_state::open));
  for (auto own = fringes_.rbegin(); own != fringes_.rend(); ++own) {
    FringeMaps const& maps = reading_.fringe(own->index);
    closeRow(maps.phase[row], maps.precision[row], least_ / own->amplitudeOfPrecision, maps.phase.cols,
             room.state.data());
  }
}

PlaceRow AxisDecoding::placesOfRow(int row, LevelTable const& certain, Room& room) const {
  FringeMaps const& finest = reading_.fringe(fringes_[0].index);
  int const n = finest.level.cols;
  PlaceRow const places = room.places();
  byLevel(finest.level[row], certain, n, room.certain.data());
  placeRow(words_[0], room.code.row, room.certain.data(), n, places);
  return places;
}

/// From the stripe to the fringe that is at least as wide, and from there to ever finer ones.
void AxisDecoding::ordersByCode(int row, Room& room) const {
  PlaceRow const places = placesOfRow(row, certainOfLit_, room);
  auto const n = static_cast<int>(room.certain.size());
  // What blur does to the edges of stripes is some tenths of a projector pixel.
  constexpr float mostGuard = 0.1F;
  constexpr float beyondEdge = 0.2F;
  constexpr float mostRest = 0.3F;
  constexpr float mostBeyond = 0.05F;
  float const period = fringes_[codeFringe_].period;
  float const guard = std::min(mostGuard * period, 1.0F + 0.02F * period);
  ordersOfPlaces(fringeRow(room, codeFringe_), places,
                 {0.5F * period - guard, 0.5F * words_[0].cell() + beyondEdge * period, mostBeyond * period},
                 n, room.flags.data(), room.coordinate.data(), room.order.data());
  for (std::size_t i = codeFringe_; i > 0; --i) {
    ordersOfFiner(fringeRow(room, i - 1), mostRest, n, room.flags.data(), room.coordinate.data(),
                  room.order.data());
  }
}

void AxisDecoding::ordersBySearch(Room& room) const {
  searchOrders(room.samples, resolution_, room.flags, room.found);
  std::transform(room.found.order.begin(), room.found.order.end(), room.order.begin(),
                 [](int order) { return static_cast<float>(order); });
  room.flags = room.found.isClear;
}

void AxisDecoding::decideRow(int row, Room& room, ScanMaps& maps) {
  loadSamples(row, room);
  closeStates(row, room);
  std::transform(room.state.begin(), room.state.end(), room.flags.begin(),
                 [](int state) { return state == pixel_state::open ? 1 : 0; });
  if (!words_.empty()) {
    loadCode(row, room.code);
    ordersByCode(row, room);
  } else if (fringes_.size() > 1) {
    ordersBySearch(room);
  } else {
    std::fill(room.order.begin(), room.order.end(), 0.0F);
  }
  float* const wrapped = maps.wrapped.inner[row];
  short* const orders = maps.order.inner[row];
  uchar* const state = maps.state.inner[row];
  float const* const turns = room.samples.turns[0].data();
  for (int x = 0; x < maps.size().width; ++x) {
    auto const at = static_cast<std::size_t>(x);
    int const own = room.state[at];
    bool const isFound = room.flags[at] != 0;
    bool const isOfImage = room.order[at] >= 0.0F;
    wrapped[x] = own == pixel_state::clipped ? noPhase : turns[x] * twoPiFloat;
    orders[x] = isFound && isOfImage ? static_cast<short>(room.order[at]) : noOrder;
    int const found = isOfImage ? pixel_state::trusted : pixel_state::noCode;
    state[x] = static_cast<uchar>(isFound ? found : own);
  }
}

/// Pixels that took their orders from neighbours, though their own bits say something else.
void AxisDecoding::dropContradicted(int row, uchar const* state, Room& room) const {
  placesOfRow(row, certainOfMean_, room);
  auto const n = static_cast<int>(room.certain.size());
  constexpr float beyondEdge = 0.25F;
  float const widest = std::max(words_[0].cell(), fringes_[0].period);
  float const limit = 0.5F * words_[0].cell() + beyondEdge * widest;
  for (int x = 0; x < n; ++x) {
    auto const at = static_cast<std::size_t>(x);
    bool const isGrown = pixel_state::isKnown(state[x]) && state[x] != pixel_state::trusted;
    bool const isFar = std::fabs(room.coordinate[at] - room.position[at]) > limit;
    room.coordinate[at] =
        isGrown && room.kind[at] != CodePlace::Unknown && isFar ? unknown : room.coordinate[at];
  }
}

/// The weighted mean of what all fringes say, the finest one's order being known. A pixel that took it from
/// its neighbours is given up when its own fringes contradict it.
void AxisDecoding::combine(uchar const* state, Room& room) const {
  auto const n = static_cast<int>(room.coordinate.size());
  MeanRow const mean{room.coordinate.data(), room.ownSigma.data(), room.weights.data(), room.shifts.data(),
                     room.flags.data()};
  startMean(fringeRow(room, 0), n, room.ownSigma.data(), mean);
  for (std::size_t i = 1; i < fringes_.size(); ++i) {
    addToMean(fringeRow(room, i), fringes_[i].tolerance * fringes_[i].period, n, mean);
  }
  for (int x = 0; x < n; ++x) {
    auto const at = static_cast<std::size_t>(x);
    bool const isDropped = room.flags[at] != 0 && state[x] != pixel_state::trusted;
    float const moved = room.coordinate[at] + room.shifts[at] / room.weights[at];
    room.coordinate[at] = room.coordinate[at] < 0.0F || isDropped ? unknown : moved;
  }
}

void AxisDecoding::finishRow(int row, Room& room, ScanMaps& maps, AxisResult& result) {
  loadSamples(row, room);
  uchar* const state = maps.state.inner[row];
  short const* const order = maps.order.inner[row];
  int const n = maps.size().width;
  float const* const turns = room.samples.turns[0].data();
  bool isAnyGrown = false;
  for (int x = 0; x < n; ++x) {
    bool const isKnown = pixel_state::isKnown(state[x]);
    float const coordinate = fringes_[0].period * (turns[x] + static_cast<float>(order[x]));
    room.coordinate[static_cast<std::size_t>(x)] = isKnown ? coordinate : unknown;
    isAnyGrown |= isKnown && state[x] != pixel_state::trusted;
  }
  if (!words_.empty() && isAnyGrown) {
    loadCode(row, room.code);
    dropContradicted(row, state, room);
  }
  combine(state, room);
  float* const coordinates = result.coordinate[row];
  float* const sigma = result.sigma[row];
  uchar* const reason = result.reason[row];
  knownOfRow(room.coordinate.data(), room.weights.data(), static_cast<float>(resolution_), n, coordinates,
             sigma);
  for (int x = 0; x < n; ++x) {
    bool const isKnown = coordinates[x] >= 0.0F;
    uchar const ofOther = pixel_state::isKnown(state[x]) ? pixel_state::noCode : state[x];
    reason[x] = pixel_state::finalReason(isKnown ? state[x] : ofOther);
  }
}

} // namespace vorn::mv::sl
