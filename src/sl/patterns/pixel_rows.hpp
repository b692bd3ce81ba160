// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <opencv2/core/mat.hpp>

#include "sl/patterns/short_float.hpp"

/// What is done with the pixels of a row, all in float so that it is vectorised.
namespace vorn::mv::sl {

/// A row of an image of any depth, less `black`.
void loadRow(cv::Mat const& image, int row, float black, float* out);

/// Weights with which a step's samples go into the sums.
struct StepWeights {
  float mean, cosine, sine, first, second;
};

/// Running sums over the steps of a fringe; `second` may be null.
struct SumRow {
  float* mean;
  float* cosine;
  float* sine;
  float* first;        ///< of what tells the noise, else null
  float* second;       ///< likewise
  std::uint32_t* lost; ///< bit k: sample k was clipped
};

/// Adds a step; samples from `white` on are left out and marked with `bit`.
void addStep(float const* samples, StepWeights const& weights, float white, std::uint32_t bit, int n,
             SumRow const& sums);

/// The angle of (sine, cosine) in [0, 2 pi), to 2e-7 rad, and its length.
void polarRow(float const* sine, float const* cosine, int n, float* angle, float* length);

/// What the bits of pixels spell, and how certain they are.
struct CodeRow {
  std::uint32_t* word;
  uchar* weakest;     ///< the bit nearest to its threshold
  ShortFloat* margin; ///< its distance
  ShortFloat* second; ///< that of the next
  float* range;       ///< amplitude of the strongest bit; null when it is not asked for
};

/// How a difference becomes what a `CodeRow` holds.
struct BitScales {
  float noise;     ///< makes its noise that of one image
  float amplitude; ///< makes it the bit's amplitude
};

/// Takes a bit that is lit where `difference` is above 0.
void addBit(float const* difference, BitScales const& scales, int bit, int n, CodeRow const& code);

} // namespace vorn::mv::sl
