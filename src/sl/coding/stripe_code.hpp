// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace vorn::mv::sl {

/// The binary code that numbers a projector's stripes: everything that those who project it, read it, check
/// it or plan with it must agree on.
///
/// A stripe is `period` projector pixels wide, as is a fringe of the phase images. Stripe q has the word
/// w = q + 2, and the images show its bits: the reference bit 0, plane k bit k exclusive-or bit 0. The offset
/// keeps every word from being all dark, and the exclusive-or makes every image change from stripe to stripe,
/// so that light from the surroundings is the same in all of them.
///
/// A stack with p planes shows p + 1 bits, which tell 2^(p + 1) stripes apart. The words of the last two of
/// so many no longer fit: they show as words 0 and 1, which no stripe reads as, so that these stripes have no
/// code of their own but are not taken for others either; their order comes from their neighbours.
struct StripeCode {
  int period; ///< projector pixels

  static constexpr int phaseImages = 4;
  static constexpr int wordOffset = 2;
  /// The pattern generator stops here, whatever the projector.
  static constexpr int maxGeneratedPlanes = 8;
  /// A decoded word has 16 bits, one of them the reference's.
  static constexpr int maxPlanes = 15;

  static constexpr unsigned word(int stripe) { return static_cast<unsigned>(stripe) + wordOffset; }

  /// The word of a stripe as its images show it: bit 0 the reference, bit k plane k. Bits beyond the planes
  /// of a stack mean nothing.
  static constexpr unsigned shownWord(int stripe) {
    unsigned const w = word(stripe);
    unsigned const reference = w & 1U;
    return w ^ (~1U & (0U - reference));
  }

  /// Images of a stack with so many planes: phases, reference, planes.
  static constexpr int images(int planes) { return phaseImages + 1 + planes; }

  /// Planes in a stack of so many images; negative when not even the reference is there.
  static constexpr int planesIn(std::size_t images) { return static_cast<int>(images) - phaseImages - 1; }

  constexpr int stripeOf(int pixel) const { return pixel / period; }

  /// Stripes that a projector shows; the last one may be cut by its edge.
  constexpr int stripes(int resolution) const {
    return resolution / period + (resolution % period > 0 ? 1 : 0);
  }

  /// Bits of the words of all whole stripes.
  constexpr int wordBits(int resolution) const {
    int bits = 0;
    while (1 << bits < resolution / period + wordOffset) {
      ++bits;
    }
    return bits;
  }

  /// Planes that the pattern generator makes for a projector.
  constexpr int generatedPlanes(int resolution) const {
    int const planes = wordBits(resolution) - 1;
    return planes < maxGeneratedPlanes ? planes : maxGeneratedPlanes;
  }

  /// The largest resolution whose stripes so many planes tell apart.
  constexpr int capacity(int planes) const { return period * (2 << planes); }

  /// Whether a stack with so many planes codes a projector: it has what the generator makes, and no two
  /// stripes look the same.
  constexpr bool isCodedBy(int planes, int resolution) const {
    return planes >= generatedPlanes(resolution) && planes <= maxPlanes && resolution <= capacity(planes);
  }

  /// The largest resolution that so many planes code.
  constexpr int largestResolution(int planes) const {
    // Below the generator's limit, the whole stripes must leave the two last words free.
    return planes < maxGeneratedPlanes ? capacity(planes) - period * wordOffset + period - 1
                                       : capacity(planes);
  }

  /// Whether a stack with so many planes looks like one made for a projector: it has as many as the generator
  /// makes, or as its words need when a longer code has been projected.
  constexpr bool isMadeFor(int planes, int resolution) const {
    return isCodedBy(planes, resolution) &&
           (planes == generatedPlanes(resolution) || planes == wordBits(resolution) - 1);
  }
};

/// Columns are coded in stripes of four pixels.
constexpr StripeCode columnCode{4};
/// Rows are coded in stripes of eight pixels.
constexpr StripeCode rowCode{8};

} // namespace vorn::mv::sl
