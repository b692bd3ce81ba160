// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/pixel_reading.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

#include <vorn/mv/sl/lookup_tables.hpp>

#include "core/bits.hpp"
#include "core/simd.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/coding/lookup_tables.hpp"
#include "sl/decode/scan_maps.hpp"
#include "sl/phase/flicker.hpp"
#include "sl/phase/phase_rows.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int phaseImages = StripeCode::phaseImages;

/// Projector pixels on either side of a code border where codes are not trusted, however certain they look.
constexpr float borderZone = 0.2F;

/// The phase images at the first pixel of a chunk. T is the type of a pixel, here and below.
template <class T>
struct Steps {
  T const* p0;
  T const* p1;
  T const* p2;
  T const* p3;

  Steps(std::vector<cv::Mat> const& images, int y, int x)
      : p0(images[0].ptr<T>(y) + x), p1(images[1].ptr<T>(y) + x), p2(images[2].ptr<T>(y) + x),
        p3(images[3].ptr<T>(y) + x) {}
};

/// Tells the processor that a chunk of an image is read soon, the one after that which begins here: of so
/// many images in turn it does not foresee it. May reach beyond the end of an image.
template <class T>
void prefetchNext(T const* pixels) {
  constexpr std::size_t lineBytes = 64;
  auto const* const next = reinterpret_cast<char const*>(pixels + phaseBlockLength);
  for (std::size_t k = 0; k < phaseBlockLength * sizeof(T); k += lineBytes) {
    prefetch(next + k);
  }
}

/// What holds the sum of four pixels.
template <class T>
using SumOf = std::conditional_t<sizeof(T) == 1, unsigned short, int>;
/// What holds the square of a difference of two pixels: of words a whole number would not.
template <class T>
using SquareOf = std::conditional_t<sizeof(T) == 1, int, float>;
template <class T>
constexpr int mostOf = std::numeric_limits<T>::max();

/// When a pixel is well exposed.
struct ExposureLimits {
  int maxSum; ///< of the phase images
  int white;  ///< clipped from here on
};

template <class T>
VORN_TARGET_CLONES void exposure(Steps<T> const& steps, ExposureLimits const& limits, int n,
                                 T* __restrict exposed, T* __restrict middle) {
  T const* const p0 = steps.p0;
  T const* const p1 = steps.p1;
  T const* const p2 = steps.p2;
  T const* const p3 = steps.p3;
  int const maxSum = limits.maxSum;
  auto const most = static_cast<T>(limits.white - 1);
  for (int x = 0; x < n; ++x) {
    auto const sum = static_cast<SumOf<T>>(p0[x] + p1[x] + p2[x] + p3[x]);
    T const top = std::max(std::max(p0[x], p1[x]), std::max(p2[x], p3[x]));
    exposed[x] = (sum <= maxSum) & (top <= most) ? 255 : 0;
    middle[x] = static_cast<T>(sum / 4);
  }
}

/// Twice the amplitude, and from it how far a code image must be from the middle to be certain: beyond
/// `uncertain`, or at `needed` at least, which is that distance rounded up.
template <class T>
VORN_TARGET_CLONES void modulation(Steps<T> const& steps, int n, float* __restrict magnitude,
                                   T* __restrict uncertain, T* __restrict needed) {
  T const* const p0 = steps.p0;
  T const* const p1 = steps.p1;
  T const* const p2 = steps.p2;
  T const* const p3 = steps.p3;
  for (int x = 0; x < n; ++x) {
    auto const sine = static_cast<SquareOf<T>>(p0[x] - p2[x]);
    auto const cosine = static_cast<SquareOf<T>>(p1[x] - p3[x]);
    magnitude[x] = std::sqrt(static_cast<float>(sine * sine + cosine * cosine));
  }
  for (int x = 0; x < n; ++x) {
    float const distance = certainPartOfMagnitude * magnitude[x];
    int const below = static_cast<int>(distance);
    uncertain[x] = static_cast<T>(below);
    needed[x] = static_cast<T>(below + (static_cast<float>(below) < distance ? 1 : 0));
  }
}

template <class T>
VORN_TARGET_CLONES void widenRange(T const* image, int n, T* __restrict lowest, T* __restrict highest) {
  for (int x = 0; x < n; ++x) {
    lowest[x] = std::min(lowest[x], image[x]);
    highest[x] = std::max(highest[x], image[x]);
  }
}

/// The thresholds of a chunk of code images.
template <class T>
struct Thresholds {
  T* __restrict middle; ///< bright from here on
  T* __restrict lower;  ///< the smaller of the two middles
  T* __restrict upper;  ///< the larger
  T* __restrict dark;   ///< certain below
  T* __restrict bright; ///< certain above
};

template <class T>
VORN_TARGET_CLONES void findThresholds(T const* lowest, T const* highest, T const* uncertain,
                                       bool usesRangeOnly, int n, Thresholds<T> const& out) {
  T* __restrict const middle = out.middle;
  T* __restrict const lower = out.lower;
  T* __restrict const upper = out.upper;
  T* __restrict const dark = out.dark;
  T* __restrict const bright = out.bright;
  if (usesRangeOnly) {
    for (int x = 0; x < n; ++x) {
      middle[x] = static_cast<T>((lowest[x] + highest[x]) / 2);
    }
  }
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    auto const ofRange = static_cast<T>((lowest[x] + highest[x]) / 2);
    lower[x] = std::min(ofRange, middle[x]);
    upper[x] = std::max(ofRange, middle[x]);
    // Sums and differences of bytes that stop at the ends.
    dark[x] = static_cast<T>(std::max(middle[x], uncertain[x]) - uncertain[x]);
    auto const room = static_cast<T>(mostOf<T> - middle[x]);
    bright[x] = static_cast<T>(middle[x] + std::min(room, uncertain[x]));
  }
}

/// What one image adds to the reading of a chunk. Bits are as wide as pixels: loops over several widths do
/// not vectorise well.
template <class T>
struct ReadingBits {
  T* __restrict bits;
  T* __restrict certain;
  T* __restrict margin; ///< least distance of an image from the nearer middle
};

template <class T>
VORN_TARGET_CLONES void addImage(T const* image, Thresholds<T> const& thresholds, T bit, int n,
                                 ReadingBits<T> const& out) {
  T const* const middle = thresholds.middle;
  T const* const lower = thresholds.lower;
  T const* const upper = thresholds.upper;
  T const* const dark = thresholds.dark;
  T const* const bright = thresholds.bright;
  T* __restrict const bits = out.bits;
  T* __restrict const certain = out.certain;
  T* __restrict const margin = out.margin;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    T const v = image[x];
    auto const above = static_cast<T>(std::max(v, upper[x]) - upper[x]);
    auto const below = static_cast<T>(lower[x] - std::min(v, lower[x]));
    bits[x] = static_cast<T>(bits[x] | (v > middle[x] ? bit : 0));
    certain[x] = static_cast<T>(certain[x] | ((v > bright[x]) | (v < dark[x]) ? bit : 0));
    margin[x] = std::min(margin[x], std::max(above, below));
  }
}

} // namespace

/// What is kept of some pixels of a row while they are read: it stays in the first-level cache.
template <class T>
struct PixelReader::Chunk {
  static constexpr int length = phaseBlockLength;
  template <class Value>
  using Values = std::array<Value, static_cast<std::size_t>(length)>;

  alignas(64) Values<float> magnitude;
  alignas(64) Values<short> code;
  alignas(64) Values<T> exposed, middle, uncertain, needed;
  alignas(64) Values<T> lowest, highest, lower, upper, dark, bright;
  alignas(64) Values<T> margin;
  alignas(64) std::array<Values<T>, 2> bits, certain; ///< of the first eight images and of the others
};

namespace {

/// Where code words become orders.
struct WordRule {
  int laterBits;
  int maxOrder;
  int minContrast;
};

template <class T>
struct WordBits {
  T const* lowBits;
  T const* highBits;
  T const* lowCertain;
  T const* highCertain;
};

template <class T>
VORN_TARGET_CLONES void packReading(WordBits<T> const& bytes, int n, int* __restrict reading) {
  T const* const lowBits = bytes.lowBits;
  T const* const highBits = bytes.highBits;
  T const* const lowCertain = bytes.lowCertain;
  T const* const highCertain = bytes.highCertain;
  for (int x = 0; x < n; ++x) {
    reading[x] = lowBits[x] | highBits[x] << 8 | lowCertain[x] << 16 | highCertain[x] << 24;
  }
}

template <class T>
VORN_TARGET_CLONES void findStripes(WordBits<T> const& bytes, T const* lowest, T const* highest,
                                    WordRule const& rule, int n, short* __restrict code,
                                    uchar* __restrict contrast) {
  T const* const lowBits = bytes.lowBits;
  T const* const highBits = bytes.highBits;
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

template <class T>
struct JudgedRow {
  float const* wrapped;
  float const* magnitude;
  short const* code;
  T const* margin;
  T const* needed;
  uchar const* contrast;
  T const* exposed;
  short* order;
  uchar* state;
};

struct JudgeLimits {
  float magnitude, weakExcess, residualFactor, border, borderZone, marginWeight;
};

/// All in float, bytes and codes too, a condition holding where a number is not negative: logic of conditions
/// of several widths does not vectorise.
template <class T>
VORN_TARGET_CLONES void judgeRow(Steps<T> const& steps, JudgedRow<T> const& row, JudgeLimits const& limits,
                                 int n) {
  T const* const p0 = steps.p0;
  T const* const p1 = steps.p1;
  T const* const p2 = steps.p2;
  T const* const p3 = steps.p3;
  float const* const wrapped = row.wrapped;
  float const* const magnitude = row.magnitude;
  short const* const code = row.code;
  T const* const margin = row.margin;
  T const* const needed = row.needed;
  uchar const* const contrast = row.contrast;
  T const* const exposed = row.exposed;
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
  limits_.white = settings.white;
  limits_.minContrast = settings.minContrast;
  limits_.maxOrder = settings.stripeCount() - 1;
  limits_.laterBits = ((1 << codeImages) - 1) & ~1;
  limits_.usesRangeOnly = !rules.phaseMiddle;
}

template <class T>
void PixelReader::exposeAndDecode(int y, int x0, int n, Chunk<T>& chunk, float* wrapped) const {
  Steps<T> const p(images_, y, x0);
  for (T const* const step : {p.p0, p.p1, p.p2, p.p3}) {
    prefetchNext(step);
  }
  exposure(p, {limits_.maxSum, limits_.white}, n, chunk.exposed.data(), chunk.middle.data());
  if (wrapped == nullptr) {
    return;
  }
  if constexpr (sizeof(T) == 1) {
    PhaseIndices indices;
    indexFourSteps(p.p0, p.p1, p.p2, p.p3, n, indices);
    readTable(requireTable(get_lut_atan2(), lutRowsFourSteps), indices, n, wrapped);
  } else {
    phaseOfFourSteps({p.p0, p.p1, p.p2, p.p3}, n, wrapped);
  }
  if (hasFlicker_) {
    correctFlicker<T>({p.p0, p.p1, p.p2, p.p3}, flicker_, n, wrapped);
  }
  rejectMasked(chunk.exposed.data(), n, wrapped);
}

template <class T>
void PixelReader::readPhasesOf(int y, float* wrapped) const {
  int const width = images_[0].cols;
  Chunk<T> chunk;
  for (int x = 0; x < width; x += Chunk<T>::length) {
    exposeAndDecode(y, x, std::min(Chunk<T>::length, width - x), chunk, wrapped + x);
  }
}

template <class T>
void PixelReader::readCode(int y, int x0, int n, Chunk<T>& chunk, uchar* contrast) const {
  auto const pixels = [&](std::size_t image) { return images_[image].ptr<T>(y) + x0; };
  prefetchNext(pixels(phaseImages));
  std::copy_n(pixels(phaseImages), n, chunk.lowest.data());
  std::copy_n(pixels(phaseImages), n, chunk.highest.data());
  for (std::size_t k = phaseImages + 1; k < images_.size(); ++k) {
    prefetchNext(pixels(k));
    widenRange(pixels(k), n, chunk.lowest.data(), chunk.highest.data());
  }
  Thresholds<T> const thresholds{chunk.middle.data(), chunk.lower.data(), chunk.upper.data(),
                                 chunk.dark.data(), chunk.bright.data()};
  findThresholds<T>(chunk.lowest.data(), chunk.highest.data(), chunk.uncertain.data(), limits_.usesRangeOnly,
                    n, thresholds);
  std::fill_n(chunk.margin.data(), n, static_cast<T>(mostOf<T>));
  for (std::size_t half = 0; half < chunk.bits.size(); ++half) {
    std::fill_n(chunk.bits[half].data(), n, T{0});
    std::fill_n(chunk.certain[half].data(), n, T{0});
  }
  constexpr std::size_t byteBits = 8;
  for (std::size_t k = 0; k + phaseImages < images_.size(); ++k) {
    std::size_t const half = k / byteBits;
    addImage<T>(pixels(k + phaseImages), thresholds, static_cast<T>(1U << (k % byteBits)), n,
                {chunk.bits[half].data(), chunk.certain[half].data(), chunk.margin.data()});
  }
  findStripes<T>({chunk.bits[0].data(), chunk.bits[1].data(), nullptr, nullptr}, chunk.lowest.data(),
                 chunk.highest.data(), {limits_.laterBits, limits_.maxOrder, limits_.minContrast}, n,
                 chunk.code.data(), contrast);
}

template <class T>
void PixelReader::judge(int y, int x0, int n, Chunk<T> const& chunk, PixelRow const& row) const {
  judgeRow<T>({images_, y, x0},
              {row.wrapped + x0, chunk.magnitude.data(), chunk.code.data(), chunk.margin.data(),
               chunk.needed.data(), row.contrast + x0, chunk.exposed.data(), row.order + x0, row.state + x0},
              {limits_.magnitude, limits_.weakExcess, limits_.residualFactor, limits_.border,
               limits_.borderZone, limits_.marginWeight},
              n);
  packReading<T>(
      {chunk.bits[0].data(), chunk.bits[1].data(), chunk.certain[0].data(), chunk.certain[1].data()}, n,
      row.reading + x0);
}

template <class T>
void PixelReader::readOf(int y, PhaseSource source, PixelRow const& row) const {
  int const width = images_[0].cols;
  Chunk<T> chunk;
  for (int x = 0; x < width; x += Chunk<T>::length) {
    int const n = std::min(Chunk<T>::length, width - x);
    exposeAndDecode(y, x, n, chunk, source == PhaseSource::Images ? row.wrapped + x : nullptr);
    modulation<T>({images_, y, x}, n, chunk.magnitude.data(), chunk.uncertain.data(), chunk.needed.data());
    readCode(y, x, n, chunk, row.contrast + x);
    judge(y, x, n, chunk, row);
  }
}

void PixelReader::readPhases(int y, float* wrapped) const {
  images_[0].depth() == CV_8U ? readPhasesOf<uchar>(y, wrapped) : readPhasesOf<ushort>(y, wrapped);
}

void PixelReader::read(int y, PhaseSource source, PixelRow const& row) const {
  images_[0].depth() == CV_8U ? readOf<uchar>(y, source, row) : readOf<ushort>(y, source, row);
}

} // namespace vorn::mv::sl
