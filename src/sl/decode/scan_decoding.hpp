// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "sl/unwrap/unwrap_regions.hpp"

namespace vorn::mv::sl {

/// What the decoding of one scan depends on. Angles are radians, grey levels those of 8-bit images.
struct ScanDecodingSettings {
  int period = 4;         ///< projector pixels of one fringe
  int resolution = 0;     ///< projector pixels along the coded axis
  int maxGrayLevel = 150; ///< largest mean of a pixel's phase images
  int minContrast = 15;   ///< least range of a pixel's code images
  int minAmplitude = 3;   ///< least fringe amplitude
  double minPhaseConfidence = 0.5;
  int phaseBlurRadius = 0;  ///< camera pixels; 0: none
  int minSegmentSize = 100; ///< camera pixels
  int maxFillRadius = 9;    ///< camera pixels; 0: none

  /// Stripes that the code tells apart.
  int stripeCount() const { return (resolution + period - 1) / period; }
};

/// A map with some more pixels on every side: growth, which leaves out the border of what it is given,
/// reaches every pixel of the image, and neighbours can be read without asking whether they exist.
template <class T>
struct PaddedMap {
  static constexpr int pad = 2;

  cv::Mat_<T> whole;
  cv::Mat_<T> inner;

  /// Keeps the buffer when the size is the same; writes `border` around the inner part.
  void create(cv::Size size, T border) {
    whole.create(size.height + 2 * pad, size.width + 2 * pad);
    inner = whole(cv::Rect(cv::Point(pad, pad), size));
    setBorder(border);
  }

  void setBorder(T border) {
    whole.rowRange(0, pad).setTo(border);
    whole.rowRange(whole.rows - pad, whole.rows).setTo(border);
    whole.colRange(0, pad).setTo(border);
    whole.colRange(whole.cols - pad, whole.cols).setTo(border);
  }
};

/// The absolute phase of a pixel whose order is not known.
constexpr float unknownPhase = std::numeric_limits<float>::quiet_NaN();

// States of the growth. A masked pixel counts as waiting in its queue from the start: it is never put there.
constexpr uchar knownState = 255;
constexpr uchar openState = 0;
constexpr uchar closedState = 95;

/// The maps of one decoding, kept between scans: fresh memory costs more than a pass over it.
struct ScanDecodingBuffers {
  PaddedMap<float> phase;     ///< wrapped, then absolute, in radians
  PaddedMap<float> magnitude; ///< twice the fringe amplitude
  PaddedMap<float> quality;   ///< order of growth
  PaddedMap<short> code;      ///< fringe order; -1: none
  PaddedMap<uchar> mask;      ///< 255: the fringes can be decoded
  PaddedMap<uchar> state;     ///< of the growth
  GrowthRegions growth;
  cv::Mat_<uchar> margin; ///< least distance of a code image from the bit threshold
  cv::Mat_<uchar> kept;   ///< 255: measured
};

/// Called after each stage with its label, such as "-Masking:"; the caller times and logs.
using StageReport = std::function<void(char const* label)>;

struct DecodedScan {
  cv::Mat_<float> coordinates; ///< projector pixels; -1 where unknown
  int filled;                  ///< pixels that hole filling closed
};

/// The projector coordinate that each camera pixel sees, from the images of one scan.
///
/// The fringe gives the place within a stripe, the code the stripe; docs/decoding.md has the whole reasoning.
/// @param images P0, P1, P2, P3, reference, planes relative to the reference; equal sizes, CV_8UC1
DecodedScan decodeScan(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings,
                       ScanDecodingBuffers& buffers, StageReport const& report);

} // namespace vorn::mv::sl
