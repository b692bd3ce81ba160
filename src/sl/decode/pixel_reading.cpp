// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/pixel_reading.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include <vorn/mv/sl/lookup_tables.hpp>

#include "core/simd.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/coding/lookup_tables.hpp"
#include "sl/decode/scan_maps.hpp"
#include "sl/phase/flicker.hpp"
#include "sl/phase/phase_rows.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int saturated = 255;
constexpr int phaseImages = StripeCode::phaseImages;

/// Projector pixels on either side of a code border where codes are not trusted, however certain they look.
constexpr float borderZone = 0.2F;

/// The phase images at the first pixel of a chunk.
struct Steps {
  uchar const* p0;
  uchar const* p1;
  uchar const* p2;
  uchar const* p3;

  Steps(std::vector<cv::Mat> const& images, int y, int x)
      : p0(images[0].ptr(y) + x), p1(images[1].ptr(y) + x), p2(images[2].ptr(y) + x),
        p3(images[3].ptr(y) + x) {}
};

VORN_TARGET_CLONES
void exposure(Steps const& steps, int maxSum, int n, uchar* __restrict exposed, uchar* __restrict middle) {
  uchar const* const p0 = steps.p0;
  uchar const* const p1 = steps.p1;
  uchar const* const p2 = steps.p2;
  uchar const* const p3 = steps.p3;
  for (int x = 0; x < n; ++x) {
    auto const sum = static_cast<unsigned short>(p0[x] + p1[x] + p2[x] + p3[x]);
    uchar const top = std::max(std::max(p0[x], p1[x]), std::max(p2[x], p3[x]));
    exposed[x] = (sum <= maxSum) & (top < saturated) ? 255 : 0;
    middle[x] = static_cast<uchar>(sum / 4);
  }
}

/// Twice the amplitude, and from it how far a code image must be from the middle to be certain: beyond
/// `uncertain`, or at `needed` at least, which is that distance rounded up.
VORN_TARGET_CLONES
void modulation(Steps const& steps, int n, float* __restrict magnitude, uchar* __restrict uncertain,
                uchar* __restrict needed) {
  uchar const* const p0 = steps.p0;
  uchar const* const p1 = steps.p1;
  uchar const* const p2 = steps.p2;
  uchar const* const p3 = steps.p3;
  for (int x = 0; x < n; ++x) {
    int const sine = p0[x] - p2[x];
    int const cosine = p1[x] - p3[x];
    magnitude[x] = std::sqrt(static_cast<float>(sine * sine + cosine * cosine));
  }
  for (int x = 0; x < n; ++x) {
    float const distance = certainPartOfMagnitude * magnitude[x];
    int const below = static_cast<int>(distance);
    uncertain[x] = static_cast<uchar>(below);
    needed[x] = static_cast<uchar>(below + (static_cast<float>(below) < distance ? 1 : 0));
  }
}

VORN_TARGET_CLONES
void widenRange(uchar const* image, int n, uchar* __restrict lowest, uchar* __restrict highest) {
  for (int x = 0; x < n; ++x) {
    lowest[x] = std::min(lowest[x], image[x]);
    highest[x] = std::max(highest[x], image[x]);
  }
}

/// The thresholds of a chunk of code images.
struct Thresholds {
  uchar* __restrict middle; ///< bright from here on
  uchar* __restrict lower;  ///< the smaller of the two middles
  uchar* __restrict upper;  ///< the larger
  uchar* __restrict dark;   ///< certain below
  uchar* __restrict bright; ///< certain above
};

VORN_TARGET_CLONES
void findThresholds(uchar const* lowest, uchar const* highest, uchar const* uncertain, bool usesRangeOnly,
                    int n, Thresholds const& out) {
  uchar* __restrict const middle = out.middle;
  uchar* __restrict const lower = out.lower;
  uchar* __restrict const upper = out.upper;
  uchar* __restrict const dark = out.dark;
  uchar* __restrict const bright = out.bright;
  if (usesRangeOnly) {
    for (int x = 0; x < n; ++x) {
      middle[x] = static_cast<uchar>((lowest[x] + highest[x]) / 2);
    }
  }
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    auto const ofRange = static_cast<uchar>((lowest[x] + highest[x]) / 2);
    lower[x] = std::min(ofRange, middle[x]);
    upper[x] = std::max(ofRange, middle[x]);
    // Sums and differences of bytes that stop at the ends.
    dark[x] = static_cast<uchar>(std::max(middle[x], uncertain[x]) - uncertain[x]);
    auto const room = static_cast<uchar>(255 - middle[x]);
    bright[x] = static_cast<uchar>(middle[x] + std::min(room, uncertain[x]));
  }
}

/// What one image adds to the reading of a chunk.
struct ReadingBytes {
  uchar* __restrict bits;
  uchar* __restrict certain;
  uchar* __restrict margin; ///< least distance of an image from the nearer middle
};

VORN_TARGET_CLONES
void addImage(uchar const* image, Thresholds const& thresholds, uchar bit, int n, ReadingBytes const& out) {
  uchar const* const middle = thresholds.middle;
  uchar const* const lower = thresholds.lower;
  uchar const* const upper = thresholds.upper;
  uchar const* const dark = thresholds.dark;
  uchar const* const bright = thresholds.bright;
  uchar* __restrict const bits = out.bits;
  uchar* __restrict const certain = out.certain;
  uchar* __restrict const margin = out.margin;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    uchar const v = image[x];
    auto const above = static_cast<uchar>(std::max(v, upper[x]) - upper[x]);
    auto const below = static_cast<uchar>(lower[x] - std::min(v, lower[x]));
    bits[x] = static_cast<uchar>(bits[x] | (v > middle[x] ? bit : 0));
    certain[x] = static_cast<uchar>(certain[x] | ((v > bright[x]) | (v < dark[x]) ? bit : 0));
    margin[x] = std::min(margin[x], std::max(above, below));
  }
}

} // namespace

/// What is kept of some pixels of a row while they are read: it stays in the first-level cache.
struct PixelReader::Chunk {
  static constexpr int length = phaseBlockLength;
  template <class T>
  using Values = std::array<T, static_cast<std::size_t>(length)>;

  alignas(64) Values<float> magnitude;
  alignas(64) Values<short> code;
  alignas(64) Values<uchar> exposed, middle, uncertain, needed;
  alignas(64) Values<uchar> lowest, highest, lower, upper, dark, bright;
  alignas(64) Values<uchar> margin;
  alignas(64) std::array<Values<uchar>, 2> bits, certain; ///< of the first eight images and of the others
};

namespace {

/// Where code words become orders.
struct WordRule {
  int laterBits;
  int maxOrder;
  int minContrast;
};

struct WordBytes {
  uchar const* lowBits;
  uchar const* highBits;
  uchar const* lowCertain;
  uchar const* highCertain;
};

VORN_TARGET_CLONES
void packReading(WordBytes const& bytes, int n, int* __restrict reading) {
  uchar const* const lowBits = bytes.lowBits;
  uchar const* const highBits = bytes.highBits;
  uchar const* const lowCertain = bytes.lowCertain;
  uchar const* const highCertain = bytes.highCertain;
  for (int x = 0; x < n; ++x) {
    reading[x] = lowBits[x] | highBits[x] << 8 | lowCertain[x] << 16 | highCertain[x] << 24;
  }
}

VORN_TARGET_CLONES
void findStripes(WordBytes const& bytes, uchar const* lowest, uchar const* highest, WordRule const& rule,
                 int n, short* __restrict code, uchar* __restrict contrast) {
  uchar const* const lowBits = bytes.lowBits;
  uchar const* const highBits = bytes.highBits;
  auto const laterBits = static_cast<short>(rule.laterBits);
  int const maxOrder = rule.maxOrder;
  int const minContrast = rule.minContrast;
  for (int x = 0; x < n; ++x) {
    contrast[x] = highest[x] - lowest[x] >= minContrast ? 255 : 0;
  }
  for (int x = 0; x < n; ++x) {
    auto const word = static_cast<short>(lowBits[x] | highBits[x] << 8);
    auto const flipped = static_cast<short>((word & 1) != 0 ? laterBits : 0);
    auto const stripe = static_cast<short>((word ^ flipped) - StripeCode::wordOffset);
    bool const isLost = (contrast[x] == 0) | (stripe > maxOrder);
    code[x] = isLost ? noOrder : stripe;
  }
}

struct JudgedRow {
  float const* wrapped;
  float const* magnitude;
  short const* code;
  uchar const* margin;
  uchar const* needed;
  uchar const* contrast;
  uchar const* exposed;
  short* order;
  uchar* state;
};

struct JudgeLimits {
  float magnitude, weakExcess, residualFactor, border, borderZone, marginWeight;
};

/// All in float, bytes and codes too, a condition holding where a number is not negative: logic of conditions
/// of several widths does not vectorise.
VORN_TARGET_CLONES
void judgeRow(Steps const& steps, JudgedRow const& row, JudgeLimits const& limits, int n) {
  uchar const* const p0 = steps.p0;
  uchar const* const p1 = steps.p1;
  uchar const* const p2 = steps.p2;
  uchar const* const p3 = steps.p3;
  float const* const wrapped = row.wrapped;
  float const* const magnitude = row.magnitude;
  short const* const code = row.code;
  uchar const* const margin = row.margin;
  uchar const* const needed = row.needed;
  uchar const* const contrast = row.contrast;
  uchar const* const exposed = row.exposed;
  short* const orders = row.order;
  uchar* const state = row.state;
  JudgeLimits const limit = limits;
  constexpr auto open = static_cast<float>(pixel_state::open);
  constexpr auto unsettled = static_cast<float>(pixel_state::unsettledContrast);
  constexpr auto dark = static_cast<float>(pixel_state::dark);
  constexpr auto clipped = static_cast<float>(pixel_state::clipped);
  constexpr auto trusted = static_cast<float>(pixel_state::trusted);
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const m = magnitude[x];
    float const p = wrapped[x];
    float const c = static_cast<float>(code[x]);
    // Of a sinusoid, opposite steps have equal sums.
    float const residual = 0.5F * std::fabs(static_cast<float>(p0[x] - p1[x] + p2[x] - p3[x]));
    float const weak = static_cast<float>(255 - contrast[x]) * (1.0F / 255.0F);
    float const strong = m - (limit.magnitude + weak * limit.weakExcess);
    // A magnitude above 0 is 1 at least.
    float const modulated =
        std::min(std::min(m - limit.magnitude, limit.residualFactor * m - residual), m - 0.5F);
    float const isExposed = static_cast<float>(exposed[x]) - 0.5F;
    float const shown = strong >= 0.0F ? open : unsettled;
    float const decoded = modulated >= 0.0F ? shown : dark;
    float const settled = isExposed >= 0.0F ? decoded : clipped;
    float const order = c - (p > limit.border ? 1.0F : 0.0F);
    float const farFromBorder = std::fabs(p - limit.border) - limit.borderZone;
    float const farFromThreshold =
        limit.marginWeight * (static_cast<float>(margin[x]) - static_cast<float>(needed[x]));
    float const certain = std::min(std::min(farFromBorder, farFromThreshold), std::min(c, order));
    float const believed = std::min(std::min(strong, modulated), std::min(certain, isExposed));
    state[x] = static_cast<uchar>(static_cast<int>(believed >= 0.0F ? trusted : settled));
    orders[x] = static_cast<short>(static_cast<int>(believed >= 0.0F ? order : -1.0F));
  }
}

} // namespace

PixelReader::PixelReader(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings,
                         std::array<float, 4> const& flicker)
    : images_(images), flicker_(flicker), hasFlicker_(isCorrection(flicker)) {
  DecodingRules const& rules = settings.rules;
  auto const confidence = static_cast<float>(settings.minPhaseConfidence);
  constexpr float anyResidual = 1e6F;
  auto const codeImages = static_cast<int>(images.size()) - phaseImages;
  limits_.magnitude = 2.0F * static_cast<float>(settings.minAmplitude);
  limits_.weakExcess =
      rules.contrast ? std::max(0.0F, static_cast<float>(settings.minContrast - 2 * settings.minAmplitude))
                     : 0.0F;
  limits_.residualFactor = rules.consistency ? (1.0F - confidence) / confidence : anyResidual;
  limits_.border = codeBorder(settings.period);
  limits_.borderZone =
      rules.awayFromBorder ? twoPiFloat * borderZone / static_cast<float>(settings.period) : 0.0F;
  limits_.marginWeight = rules.certainImages ? 1.0F : 0.0F;
  limits_.maxSum = 4 * settings.maxGrayLevel;
  limits_.minContrast = settings.minContrast;
  limits_.maxOrder = settings.stripeCount() - 1;
  limits_.laterBits = ((1 << codeImages) - 1) & ~1;
  limits_.usesRangeOnly = !rules.phaseMiddle;
}

void PixelReader::exposeAndDecode(int y, int x0, int n, Chunk& chunk, float* wrapped) const {
  Steps const p(images_, y, x0);
  PhaseIndices indices;
  indexFourSteps(p.p0, p.p1, p.p2, p.p3, n, indices);
  readTable(requireTable(get_lut_atan2(), lutRowsFourSteps), indices, n, wrapped);
  if (hasFlicker_) {
    correctFlicker({p.p0, p.p1, p.p2, p.p3}, flicker_, n, wrapped);
  }
  rejectMasked(chunk.exposed.data(), n, wrapped);
}

void PixelReader::readPhases(int y, float* wrapped) const {
  int const width = images_[0].cols;
  Chunk chunk;
  for (int x = 0; x < width; x += Chunk::length) {
    int const n = std::min(Chunk::length, width - x);
    exposure({images_, y, x}, limits_.maxSum, n, chunk.exposed.data(), chunk.middle.data());
    exposeAndDecode(y, x, n, chunk, wrapped + x);
  }
}

void PixelReader::readCode(int y, int x0, int n, Chunk& chunk, uchar* contrast) const {
  std::copy_n(images_[phaseImages].ptr(y) + x0, n, chunk.lowest.data());
  std::copy_n(images_[phaseImages].ptr(y) + x0, n, chunk.highest.data());
  for (std::size_t k = phaseImages + 1; k < images_.size(); ++k) {
    widenRange(images_[k].ptr(y) + x0, n, chunk.lowest.data(), chunk.highest.data());
  }
  Thresholds const thresholds{chunk.middle.data(), chunk.lower.data(), chunk.upper.data(), chunk.dark.data(),
                              chunk.bright.data()};
  findThresholds(chunk.lowest.data(), chunk.highest.data(), chunk.uncertain.data(), limits_.usesRangeOnly, n,
                 thresholds);
  std::fill_n(chunk.margin.data(), n, uchar{255});
  for (std::size_t half = 0; half < chunk.bits.size(); ++half) {
    std::fill_n(chunk.bits[half].data(), n, uchar{0});
    std::fill_n(chunk.certain[half].data(), n, uchar{0});
  }
  constexpr std::size_t byteBits = 8;
  for (std::size_t k = 0; k + phaseImages < images_.size(); ++k) {
    std::size_t const half = k / byteBits;
    addImage(images_[k + phaseImages].ptr(y) + x0, thresholds, static_cast<uchar>(1U << (k % byteBits)), n,
             {chunk.bits[half].data(), chunk.certain[half].data(), chunk.margin.data()});
  }
  findStripes({chunk.bits[0].data(), chunk.bits[1].data(), nullptr, nullptr}, chunk.lowest.data(),
              chunk.highest.data(), {limits_.laterBits, limits_.maxOrder, limits_.minContrast}, n,
              chunk.code.data(), contrast);
}

void PixelReader::judge(int y, int x0, int n, Chunk const& chunk, PixelRow const& row) const {
  judgeRow({images_, y, x0},
           {row.wrapped + x0, chunk.magnitude.data(), chunk.code.data(), chunk.margin.data(),
            chunk.needed.data(), row.contrast + x0, chunk.exposed.data(), row.order + x0, row.state + x0},
           {limits_.magnitude, limits_.weakExcess, limits_.residualFactor, limits_.border, limits_.borderZone,
            limits_.marginWeight},
           n);
  packReading({chunk.bits[0].data(), chunk.bits[1].data(), chunk.certain[0].data(), chunk.certain[1].data()},
              n, row.reading + x0);
}

void PixelReader::read(int y, PhaseSource source, PixelRow const& row) const {
  int const width = images_[0].cols;
  Chunk chunk;
  for (int x = 0; x < width; x += Chunk::length) {
    int const n = std::min(Chunk::length, width - x);
    exposure({images_, y, x}, limits_.maxSum, n, chunk.exposed.data(), chunk.middle.data());
    if (source == PhaseSource::Images) {
      exposeAndDecode(y, x, n, chunk, row.wrapped + x);
    }
    modulation({images_, y, x}, n, chunk.magnitude.data(), chunk.uncertain.data(), chunk.needed.data());
    readCode(y, x, n, chunk, row.contrast + x);
    judge(y, x, n, chunk, row);
  }
}

} // namespace vorn::mv::sl
