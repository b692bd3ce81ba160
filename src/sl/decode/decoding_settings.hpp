// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

/// Each rule of decoding by itself, so that what it gains can be measured: all are on in a scan. What a rule
/// is for stands in docs/decoding.md.
struct DecodingRules {
  bool flicker = true;        ///< equal brightness of the four phase images is restored
  bool contrast = true;       ///< weak pixels need code images of some range, their own or around them
  bool consistency = true;    ///< the four steps must fit a sine ("MinPhaseConfident")
  bool certainImages = true;  ///< a code is trusted only where every image is far from its threshold
  bool awayFromBorder = true; ///< and where the phase is not near the border of a stripe
  bool phaseMiddle = true;    ///< thresholds come from the fringes' mean, too, not from the range alone
  bool bridging = true;       ///< pixels between trusted ones of neighbouring stripes follow the phase
  bool codeCheck = true;      ///< bridged and grown pixels must agree with their certain code images
  bool growth = true;         ///< the rest takes its order from the best neighbour
  bool doubtfulGrowth = true; ///< growth that touches a jump of the phase is dropped
  bool edgeJumps = true;      ///< a pixel goes beside a jump to the next pixel
  bool edgeFarJumps = true;   ///< ... to the next but one, across an unknown or a much brighter one
  bool edgeShading = true;    ///< ... and where it loses light at the end of a surface
  bool weakRims = true;       ///< surfaces go on over pixels of little contrast beside them
  bool smallSegments = true;  ///< connected pieces below "MinSegmentSize" go
  bool holeFilling = true;    ///< small holes in one smooth surface are closed
};

/// What the decoding of one scan depends on. Angles are radians, grey levels those of the images.
struct ScanDecodingSettings {
  int period = 4;         ///< projector pixels of one fringe
  int resolution = 0;     ///< projector pixels along the coded axis
  int white = 255;        ///< a pixel is clipped from here on
  int maxGrayLevel = 150; ///< largest mean of a pixel's phase images
  int minContrast = 15;   ///< least range of a pixel's code images
  int minAmplitude = 3;   ///< least fringe amplitude
  double minPhaseConfidence = 0.5;
  int phaseBlurRadius = 0;  ///< camera pixels; 0: none
  int minSegmentSize = 100; ///< camera pixels
  int maxFillRadius = 9;    ///< camera pixels; 0: none
  DecodingRules rules;

  /// Stripes that the code tells apart.
  int stripeCount() const { return StripeCode{period}.stripes(resolution); }
};

} // namespace vorn::mv::sl
