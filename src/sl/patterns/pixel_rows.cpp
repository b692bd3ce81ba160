// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/pixel_rows.hpp"

#include <algorithm>
#include <cmath>

#include "core/pi.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

VORN_TARGET_CLONES
void loadBytes(uchar const* in, float black, int n, float* __restrict out) {
  for (int x = 0; x < n; ++x) {
    out[x] = static_cast<float>(in[x]) - black;
  }
}

VORN_TARGET_CLONES
void loadWords(ushort const* in, float black, int n, float* __restrict out) {
  for (int x = 0; x < n; ++x) {
    out[x] = static_cast<float>(in[x]) - black;
  }
}

VORN_TARGET_CLONES
void loadFloats(float const* in, float black, int n, float* __restrict out) {
  for (int x = 0; x < n; ++x) {
    out[x] = in[x] - black;
  }
}

VORN_TARGET_CLONES
void addThree(float const* samples, StepWeights const& weights, float white, std::uint32_t bit, int n,
              SumRow const& sums) {
  StepWeights const w = weights;
  float* __restrict const mean = sums.mean;
  float* __restrict const cosine = sums.cosine;
  float* __restrict const sine = sums.sine;
  std::uint32_t* __restrict const lost = sums.lost;
  for (int x = 0; x < n; ++x) {
    // False for a NaN, too.
    bool const isKept = samples[x] < white;
    float const v = isKept ? samples[x] : 0.0F;
    mean[x] += w.mean * v;
    cosine[x] += w.cosine * v;
    sine[x] += w.sine * v;
    lost[x] |= isKept ? 0U : bit;
  }
}

VORN_TARGET_CLONES
void addWeighted(float const* samples, float weight, float white, int n, float* __restrict sum) {
  for (int x = 0; x < n; ++x) {
    sum[x] += samples[x] < white ? weight * samples[x] : 0.0F;
  }
}

VORN_TARGET_CLONES
void widenRange(float const* difference, float scale, int n, float* __restrict range) {
  for (int x = 0; x < n; ++x) {
    range[x] = std::max(range[x], scale * std::fabs(difference[x]));
  }
}

VORN_TARGET_CLONES
void readBit(float const* difference, float scale, int bit, int n, CodeRow const& code) {
  std::uint32_t* __restrict const word = code.word;
  uchar* __restrict const weakest = code.weakest;
  ShortFloat* __restrict const margin = code.margin;
  ShortFloat* __restrict const second = code.second;
  std::uint32_t const place = 1U << static_cast<unsigned>(bit);
  auto const number = static_cast<uchar>(bit);
  for (int x = 0; x < n; ++x) {
    float const d = difference[x];
    ShortFloat const distance = toShortFloat(scale * std::fabs(d));
    word[x] |= d > 0.0F ? place : 0U;
    ShortFloat const least = margin[x];
    second[x] = std::min(second[x], std::max(distance, least));
    margin[x] = std::min(distance, least);
    weakest[x] = distance <= least ? number : weakest[x];
  }
}

/// The arctangent of a ratio up to 1 by a polynomial up to tan(pi / 8) (S. L. Moshier, Cephes, atanf).
VORN_TARGET_CLONES
void findPolar(float const* sine, float const* cosine, int n, float* __restrict angle,
               float* __restrict length) {
  for (int x = 0; x < n; ++x) {
    float const s = sine[x];
    float const c = cosine[x];
    float const as = std::fabs(s);
    float const ac = std::fabs(c);
    float const larger = std::max(as, ac);
    float const ratio = std::min(as, ac) / std::max(larger, 1e-30F);
    bool const isSteep = ratio > 0.41421356F;
    float const t = isSteep ? (ratio - 1.0F) / (ratio + 1.0F) : ratio;
    float const z = t * t;
    float const series =
        ((8.05374449538e-2F * z - 1.38776856032e-1F) * z + 1.99777106478e-1F) * z - 3.33329491539e-1F;
    float const eighth = t + t * z * series + (isSteep ? 0.25F * piFloat : 0.0F);
    float const quarter = as > ac ? 0.5F * piFloat - eighth : eighth;
    float const half = c < 0.0F ? piFloat - quarter : quarter;
    float const whole = s < 0.0F ? twoPiFloat - half : half;
    angle[x] = whole < twoPiFloat ? whole : 0.0F;
    length[x] = std::sqrt(s * s + c * c);
  }
}

} // namespace

void loadRow(cv::Mat const& image, int row, float black, float* out) {
  switch (image.depth()) {
  case CV_8U:
    return loadBytes(image.ptr<uchar>(row), black, image.cols, out);
  case CV_16U:
    return loadWords(image.ptr<ushort>(row), black, image.cols, out);
  default:
    return loadFloats(image.ptr<float>(row), black, image.cols, out);
  }
}

void addStep(float const* samples, StepWeights const& weights, float white, std::uint32_t bit, int n,
             SumRow const& sums) {
  addThree(samples, weights, white, bit, n, sums);
  if (sums.first != nullptr) {
    addWeighted(samples, weights.first, white, n, sums.first);
  }
  if (sums.second != nullptr) {
    addWeighted(samples, weights.second, white, n, sums.second);
  }
}

void polarRow(float const* sine, float const* cosine, int n, float* angle, float* length) {
  findPolar(sine, cosine, n, angle, length);
}

void addBit(float const* difference, BitScales const& scales, int bit, int n, CodeRow const& code) {
  readBit(difference, scales.noise, bit, n, code);
  if (code.range != nullptr) {
    widenRange(difference, scales.amplitude, n, code.range);
  }
}

} // namespace vorn::mv::sl
