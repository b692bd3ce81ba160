// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/scan_decoding.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>
#include <vorn/mv/sl/phase_quality.hpp>

#include "core/parallel.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/decode/decode_masking.hpp"
#include "sl/decode/hole_filling.hpp"
#include "sl/decode/segments.hpp"
#include "sl/decode/stripe_bridging.hpp"
#include "sl/decode/stripe_orders.hpp"
#include "sl/decode/surface_edges.hpp"
#include "sl/phase/flicker.hpp"
#include "sl/phase/phase_blur.hpp"
#include "sl/unwrap/phase_unwrapping.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int phaseImageCount = 4;
constexpr float undecodable = -1.0F;

void prepare(ScanDecodingBuffers& buffers, cv::Size size) {
  buffers.phase.create(size, undecodable);
  buffers.magnitude.create(size, undecodable);
  buffers.quality.create(size, 0.0F);
  buffers.code.create(size, short{-1});
  buffers.mask.create(size, uchar{0});
  buffers.state.create(size, closedState);
  buffers.margin.create(size);
  buffers.kept.create(size);
}

/// The phase that a pixel's images show, or a negative number when they are clipped or show no fringe.
float ownPhase(std::vector<cv::Mat> const& phaseImages, std::array<float, 4> const& flicker, cv::Point pixel,
               int minAmplitude) {
  int v[phaseImageCount] = {};
  std::transform(phaseImages.begin(), phaseImages.end(), v,
                 [&](cv::Mat const& image) { return image.ptr(pixel.y)[pixel.x]; });
  constexpr int saturated = 255;
  bool const isClipped = *std::max_element(v, v + phaseImageCount) == saturated;
  bool const isModulated = std::hypot(v[0] - v[2], v[1] - v[3]) >= 2.0 * minAmplitude;
  return isModulated && !isClipped ? correctedPhase(v[0], v[1], v[2], v[3], flicker) : undecodable;
}

/// The kept phases in projector pixels.
cv::Mat_<float> coordinatesOf(cv::Mat_<float> const& phase, cv::Mat_<uchar> const& kept, int period) {
  constexpr double twoPi = 6.283185307179586;
  auto const pixelsPerRadian = static_cast<float>(period / twoPi);
  cv::Mat_<float> coordinates(phase.size());
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    int const cols = phase.cols;
    for (int y = firstRow; y < endRow; ++y) {
      float const* const phases = phase[y];
      uchar const* const keeps = kept[y];
      float* const out = coordinates[y];
      for (int x = 0; x < cols; ++x) {
        out[x] = keeps[x] != 0 ? phases[x] * pixelsPerRadian : undecodable;
      }
    }
  });
  return coordinates;
}

} // namespace

DecodedScan decodeScan(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings,
                       ScanDecodingBuffers& buffers, StageReport const& report) {
  std::vector<cv::Mat> const phaseImages(images.begin(), images.begin() + phaseImageCount);
  std::vector<cv::Mat> const codeImages(images.begin() + phaseImageCount, images.end());
  CodeCheck const codes(phaseImages, codeImages, settings.period);
  prepare(buffers, images[0].size());
  cv::Mat_<float>& phase = buffers.phase.inner;
  cv::Mat_<uchar>& lit = buffers.kept; // not in use before the last stages

  maskExposure(phaseImages, settings.maxGrayLevel, buffers.mask.inner);
  maskContrast(phaseImages, codeImages, settings.minContrast, 2 * settings.period, lit, buffers.margin);
  report("-Masking:");

  std::array<float, 4> const flicker = flickerCorrection(phaseImages, buffers.mask.inner);
  decode_phase_shift(phaseImages, phase, buffers.mask.inner);
  correctFlicker(phaseImages, flicker, phase);
  calc_magnitude(phaseImages, buffers.magnitude.inner, buffers.mask.inner);
  report("-Phase decoding:");

  decode_binary_xor0_pattern(codeImages, buffers.code.inner, settings.stripeCount() - 1, settings.minContrast,
                             0, buffers.mask.inner);
  report("-Binary decoding:");

  if (settings.phaseBlurRadius > 0) {
    blurPhase(phase, buffers.magnitude.inner, buffers.mask.inner, settings.phaseBlurRadius);
  }
  trustCodes(phaseImages, settings, lit, buffers);
  bridgeStripeBorders(settings, codes, buffers);
  calc_quality(buffers.phase.whole, buffers.quality.whole, buffers.mask.whole);
  report("-Optimizing:");

  unwrap_phase(buffers.phase.whole, buffers.quality.whole, buffers.state.whole, buffers.code.whole,
               buffers.mask.whole, buffers.growth);
  settleOrders(codes, buffers);
  std::vector<Run> runs;
  dropDoubtfulGrowth(buffers, runs);
  keepOffEdges(buffers);
  removeSmallSegments(buffers.kept, settings.minSegmentSize, runs);
  report("-Unwrapping:");

  auto const own = [&](cv::Point pixel) {
    return ownPhase(phaseImages, flicker, pixel, settings.minAmplitude);
  };
  int const filled = fillHoles(phase, buffers.kept, settings.maxFillRadius, own, runs);
  return {coordinatesOf(phase, buffers.kept, settings.period), filled};
}

} // namespace vorn::mv::sl
