// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/order_rows.hpp"

#include <algorithm>
#include <cmath>

#include "core/nearest_whole.hpp"
#include "core/pi.hpp"
#include "core/simd.hpp"
#include "sl/decode/pixel_state.hpp"

namespace vorn::mv::sl {

namespace {

VORN_ALWAYS_INLINE std::uint32_t numberOfGray(std::uint32_t word) {
  word ^= word >> 16U;
  word ^= word >> 8U;
  word ^= word >> 4U;
  word ^= word >> 2U;
  return word ^ (word >> 1U);
}

/// @param stripe of each pixel
/// @param other  the stripe if its weakest bit were the other one
template <class StripeOf>
VORN_ALWAYS_INLINE void readStripes(WordRow const& words, StripeOf const& stripeOf, int n,
                                    int* __restrict stripe, int* __restrict other) {
  std::uint32_t const* const word = words.word;
  uchar const* const weakest = words.weakest;
  for (int x = 0; x < n; ++x) {
    stripe[x] = stripeOf(word[x]);
    other[x] = stripeOf(word[x] ^ (1U << static_cast<unsigned>(weakest[x])));
  }
}

VORN_TARGET_CLONES
void readGray(WordRow const& words, int n, int* stripe, int* other) {
  readStripes(
      words, [](std::uint32_t word) { return static_cast<int>(numberOfGray(word)); }, n, stripe, other);
}

VORN_TARGET_CLONES
void readBinary(WordRow const& words, int n, int* stripe, int* other) {
  readStripes(
      words, [](std::uint32_t word) { return static_cast<int>(word); }, n, stripe, other);
}

VORN_TARGET_CLONES
void readXor(WordRow const& words, std::uint32_t flipped, int n, int* stripe, int* other) {
  auto const stripeOf = [flipped](std::uint32_t word) {
    return static_cast<int>(word ^ ((word & 1U) != 0 ? flipped : 0U)) - StripeCode::wordOffset;
  };
  readStripes(words, stripeOf, n, stripe, other);
}

VORN_TARGET_CLONES
void placeStripes(CodeWord::Stripes const& stripes, WordRow const& words, float const* certain, int n,
                  PlaceRow const& out) {
  StripeCells const cells = stripes.cells();
  int const* const other = out.other;
  int* __restrict const kind = out.kind;
  int* __restrict const lean = out.lean;
  float* __restrict const position = out.position;
  ShortFloat const* const margin = words.margin;
  ShortFloat const* const second = words.second;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    int const stripe = kind[x];
    bool const isPlaced = fromShortFloat(second[x]) > certain[x] && stripe >= 0;
    bool const isCertain = fromShortFloat(margin[x]) > certain[x];
    bool const isNext = other[x] == stripe + 1;
    bool const isBefore = other[x] == stripe - 1;
    double const begin = cells.edge(stripe);
    double const end = cells.edge(stripe + 1);
    double const border = isNext ? end : begin;
    position[x] = static_cast<float>(isCertain ? 0.5 * (begin + end) : border);
    int const ofUncertain = isNext || isBefore ? CodePlace::Border : CodePlace::Unknown;
    int const ofPlaced = isCertain ? static_cast<int>(CodePlace::Stripe) : ofUncertain;
    kind[x] = isPlaced ? ofPlaced : static_cast<int>(CodePlace::Unknown);
    constexpr float half = 0.5F;
    bool const isLeaning = !isCertain && fromShortFloat(margin[x]) > half * certain[x];
    int const towards = isNext ? -1 : 1;
    lean[x] = isLeaning ? towards : 0;
  }
}

// Choices at load time are seen from outside the library, unless nothing outside this file knows them.

VORN_TARGET_CLONES
void phaseInTurnsCloned(float const* phase, int n, float* __restrict turns) {
  constexpr float perTurn = 1.0F / twoPiFloat;
  for (int x = 0; x < n; ++x) {
    turns[x] = phase[x] * perTurn;
  }
}

VORN_TARGET_CLONES
void phaseSigmaCloned(ShortFloat const* precision, uchar const* level, LevelTable const& noiseInTurns, int n,
                      float* __restrict sigma) {
  float const* const noise = noiseInTurns.data();
  for (int x = 0; x < n; ++x) {
    sigma[x] = noise[static_cast<int>(level[x])] / std::max(fromShortFloat(precision[x]), 1e-6F);
  }
}

VORN_TARGET_CLONES
void byLevelCloned(uchar const* level, LevelTable const& table, int n, float* __restrict out) {
  float const* const values = table.data();
  for (int x = 0; x < n; ++x) {
    out[x] = values[static_cast<int>(level[x])];
  }
}

VORN_TARGET_CLONES
void closeRowCloned(float const* phase, ShortFloat const* precision, float leastPrecision, int n,
                    int* __restrict state) {
  for (int x = 0; x < n; ++x) {
    float const own = fromShortFloat(precision[x]);
    int const before = state[x];
    int const ofNone = phase[x] < 0.0F ? pixel_state::clipped : pixel_state::dark;
    int const ofWeak = before == pixel_state::clipped ? before : static_cast<int>(pixel_state::dark);
    int const ofAny = own >= leastPrecision ? before : ofWeak;
    state[x] = own > 0.0F ? ofAny : ofNone;
  }
}

VORN_TARGET_CLONES
void ordersOfPlacesCloned(FringeRow const& fringe, PlaceRow const& places, PlaceLimits const& limits, int n,
                          int* __restrict isFound, float* __restrict coordinate, float* __restrict order) {
  FringeRow const own = fringe;
  PlaceLimits const within = limits;
  int const* const kind = places.kind;
  int const* const lean = places.lean;
  float const* const position = places.position;
  for (int x = 0; x < n; ++x) {
    float const whole = nearestWhole(position[x] / own.period - own.turns[x]);
    coordinate[x] = own.period * (own.turns[x] + whole);
    order[x] = whole;
    float const reach = within.reach - 3.0F * own.period * own.sigma[x];
    float const limit = kind[x] == CodePlace::Border ? reach : std::min(reach, within.ofStripe);
    bool const isNear = std::fabs(coordinate[x] - position[x]) <= limit;
    // A bit may be weak for noise alone, near another border: then its pixel is not beyond this one.
    bool const isAgreed = (coordinate[x] - position[x]) * static_cast<float>(lean[x]) >= -within.beyond;
    isFound[x] = kind[x] != CodePlace::Unknown && isNear && isAgreed ? isFound[x] : 0;
  }
}

VORN_TARGET_CLONES
void ordersOfFinerCloned(FringeRow const& fringe, float mostRest, int n, int* __restrict isFound,
                         float* __restrict coordinate, float* __restrict order) {
  FringeRow const own = fringe;
  for (int x = 0; x < n; ++x) {
    float const exact = coordinate[x] / own.period - own.turns[x];
    float const whole = nearestWhole(exact);
    isFound[x] = std::fabs(exact - whole) <= mostRest ? isFound[x] : 0;
    coordinate[x] = own.period * (own.turns[x] + whole);
    order[x] = whole;
  }
}

VORN_TARGET_CLONES
void startMeanCloned(FringeRow const& finest, int n, float* __restrict ownSigma, MeanRow const& mean) {
  FringeRow const own = finest;
  float* __restrict const weights = mean.weights;
  float* __restrict const shifts = mean.shifts;
  int* __restrict const isContradicted = mean.isContradicted;
  for (int x = 0; x < n; ++x) {
    ownSigma[x] = own.period * own.sigma[x];
    weights[x] = 1.0F / (ownSigma[x] * ownSigma[x]);
    shifts[x] = 0.0F;
    isContradicted[x] = 0;
  }
}

VORN_TARGET_CLONES
void addToMeanCloned(FringeRow const& fringe, float tolerance, int n, MeanRow const& mean) {
  constexpr float deviations = 6.0F;
  FringeRow const own = fringe;
  float const* const coordinate = mean.coordinate;
  float const* const finest = mean.ownSigma;
  float* __restrict const weights = mean.weights;
  float* __restrict const shifts = mean.shifts;
  int* __restrict const isContradicted = mean.isContradicted;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const exact = coordinate[x] / own.period - own.turns[x];
    float const rest = own.period * (nearestWhole(exact) - exact);
    float const ofFringe = own.period * own.sigma[x];
    float const limit = deviations * std::sqrt(finest[x] * finest[x] + ofFringe * ofFringe) + tolerance;
    bool const isFar = std::fabs(rest) > limit;
    float const weight = isFar ? 0.0F : 1.0F / (ofFringe * ofFringe);
    weights[x] += weight;
    shifts[x] += weight * rest;
    isContradicted[x] |= isFar ? 1 : 0;
  }
}

} // namespace

void phaseInTurns(float const* phase, int n, float* turns) {
  phaseInTurnsCloned(phase, n, turns);
}

void phaseSigma(ShortFloat const* precision, uchar const* level, LevelTable const& noiseInTurns, int n,
                float* sigma) {
  phaseSigmaCloned(precision, level, noiseInTurns, n, sigma);
}

void byLevel(uchar const* level, LevelTable const& table, int n, float* out) {
  byLevelCloned(level, table, n, out);
}

void closeRow(float const* phase, ShortFloat const* precision, float leastPrecision, int n, int* state) {
  closeRowCloned(phase, precision, leastPrecision, n, state);
}

void placeRow(CodeWord const& code, WordRow const& words, float const* certain, int n, PlaceRow const& out) {
  CodeWord::Stripes const stripes = code.stripes();
  switch (stripes.code) {
  case BitCode::Gray:
    readGray(words, n, out.kind, out.other);
    break;
  case BitCode::Xor:
    readXor(words, stripes.flipped, n, out.kind, out.other);
    break;
  case BitCode::Binary:
    readBinary(words, n, out.kind, out.other);
    break;
  }
  placeStripes(stripes, words, certain, n, out);
}

void ordersOfPlaces(FringeRow const& fringe, PlaceRow const& places, PlaceLimits const& limits, int n,
                    int* isFound, float* coordinate, float* order) {
  ordersOfPlacesCloned(fringe, places, limits, n, isFound, coordinate, order);
}

void ordersOfFiner(FringeRow const& fringe, float mostRest, int n, int* isFound, float* coordinate,
                   float* order) {
  ordersOfFinerCloned(fringe, mostRest, n, isFound, coordinate, order);
}

void startMean(FringeRow const& finest, int n, float* ownSigma, MeanRow const& mean) {
  startMeanCloned(finest, n, ownSigma, mean);
}

void addToMean(FringeRow const& fringe, float tolerance, int n, MeanRow const& mean) {
  addToMeanCloned(fringe, tolerance, n, mean);
}

} // namespace vorn::mv::sl
