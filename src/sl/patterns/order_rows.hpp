// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

#include <opencv2/core/hal/interface.h>

#include "sl/patterns/code_word.hpp"
#include "sl/patterns/noise_tally.hpp"
#include "sl/patterns/short_float.hpp"

/// What is done with the fringes and bits of a row to know its orders, so that it is vectorised. Flags are
/// 0 or 1.
namespace vorn::mv::sl {

using LevelTable = std::array<float, levelBins>;

/// A fringe of a row.
struct FringeRow {
  float const* turns; ///< phase in parts of a turn
  float const* sigma; ///< its standard deviation, likewise
  float period;       ///< projector pixels
};

/// What the bits of a row spell.
struct WordRow {
  std::uint32_t const* word;
  uchar const* weakest;
  ShortFloat const* margin;
  ShortFloat const* second;
};

void phaseInTurns(float const* phase, int n, float* turns);

/// @param noiseInTurns by level
void phaseSigma(ShortFloat const* precision, uchar const* level, LevelTable const& noiseInTurns, int n,
                float* sigma);

void byLevel(uchar const* level, LevelTable const& table, int n, float* out);

/// The state of pixels that have no fringe or a weak one; what is in `state` is that of the fringes after it.
void closeRow(float const* phase, ShortFloat const* precision, float leastPrecision, int n, int* state);

/// Where the bits of a row say that its pixels are.
struct PlaceRow {
  int* kind;       ///< of `CodePlace`
  float* position; ///< where there is one
  int* lean;  ///< of a border, on which side the uncertain bit says that the pixel is: -1, 1, or 0 for none
  int* other; ///< room
};

/// `CodeWord::place` for a row.
/// @param certain what makes a bit certain
void placeRow(CodeWord const& code, WordRow const& words, float const* certain, int n, PlaceRow const& out);

/// How far a fringe may lie from where a stripe or a border says that it is, projector pixels.
struct PlaceLimits {
  float reach;    ///< half a period less what is never sure
  float ofStripe; ///< from the middle of a stripe
  float beyond;   ///< a border, on the side that the bit speaks against
};

/// The orders of a fringe that is at least as wide as the stripes.
/// @param isFound of those that have a place; set to 0 where the fringe is too far from it
void ordersOfPlaces(FringeRow const& fringe, PlaceRow const& places, PlaceLimits const& limits, int n,
                    int* isFound, float* coordinate, float* order);

/// The orders of a finer fringe from the coordinates that a coarser one tells, which it replaces.
void ordersOfFiner(FringeRow const& fringe, float mostRest, int n, int* isFound, float* coordinate,
                   float* order);

/// A weighted mean in the making.
struct MeanRow {
  float const* coordinate; ///< of the finest fringe
  float const* ownSigma;   ///< its, projector pixels
  float* weights;
  float* shifts;
  int* isContradicted;
};

void startMean(FringeRow const& finest, int n, float* ownSigma, MeanRow const& mean);

/// Fringes that are too far away do not take part.
/// @param tolerance deviation that is not noise, projector pixels
void addToMean(FringeRow const& fringe, float tolerance, int n, MeanRow const& mean);

} // namespace vorn::mv::sl
