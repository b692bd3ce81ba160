// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/stripe_orders.hpp"

#include <algorithm>
#include <cmath>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float pi = 3.14159265F;
/// Projector pixels on either side of a code border where codes are not trusted, however certain they look.
constexpr float borderZone = 0.2F;

struct TrustLimits {
  float magnitude;      ///< least
  float unlitExcess;    ///< by how much more a pixel needs that its code images do not show to be lit
  float residualFactor; ///< largest inconsistency of the four steps, in parts of the magnitude
  float border;         ///< phase at which the code changes
  float borderZone;     ///< phases nearer to it than this are not trusted
  float marginFactor;   ///< least margin, in parts of the magnitude
};

struct TrustRows {
  uchar const* images[4];
  float const* phase;
  float const* magnitude;
  uchar const* lit;
  uchar const* margin;
  uchar* mask;
  short* code;
};

/// Masks what is badly modulated; makes `code` the fringe order, or -1 where it is uncertain.
VORN_TARGET_CLONES
void trustRow(TrustRows const& rows, TrustLimits const& limits, int n) {
  uchar const* const p0 = rows.images[0];
  uchar const* const p1 = rows.images[1];
  uchar const* const p2 = rows.images[2];
  uchar const* const p3 = rows.images[3];
  float const* const phase = rows.phase;
  float const* const magnitude = rows.magnitude;
  uchar const* const lit = rows.lit;
  uchar const* const margins = rows.margin;
  uchar* const mask = rows.mask;
  short* const code = rows.code;
  TrustLimits const limit = limits;
  // All in float, bytes and codes too, a condition holding where a number is not negative: logic of
  // conditions of several widths does not vectorise.
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const m = magnitude[x];
    float const p = phase[x];
    float const c = static_cast<float>(code[x]);
    float const unlit = static_cast<float>(255 - lit[x]) * (1.0F / 255.0F);
    float const least = limit.magnitude + unlit * limit.unlitExcess;
    // Of a sinusoid, opposite steps have equal sums.
    float const residual = 0.5F * std::fabs(static_cast<float>(p0[x] - p1[x] + p2[x] - p3[x]));
    float const order = c - (p > limit.border ? 1.0F : 0.0F);
    float const strong = std::min(m - least, limit.residualFactor * m - residual);
    float const modulated = m > 0.0F ? strong : -1.0F;
    float const farFromBorder = std::fabs(p - limit.border) - limit.borderZone;
    float const farFromThreshold = static_cast<float>(margins[x]) - limit.marginFactor * m;
    float const certain = std::min(std::min(farFromBorder, farFromThreshold), std::min(c, order));
    mask[x] = static_cast<uchar>(modulated >= 0.0F ? 255 : 0);
    code[x] = static_cast<short>(static_cast<int>(std::min(modulated, certain) >= 0.0F ? order : -1.0F));
  }
}

struct AgreementRows {
  float const* phase;
  short const* code;
  std::ptrdiff_t phaseStep; ///< elements from row to row
  std::ptrdiff_t codeStep;
  uchar* mask;
  uchar* state;
};

/// 1 for a pixel with an order, 0 for one without, whose code is -1.
inline float certainty(short code) {
  return std::min(static_cast<float>(code) + 1.0F, 1.0F);
}

/// +1 when a neighbour's absolute phase agrees with `p`, -1 when it contradicts, 0 when it is uncertain
/// itself.
inline float vote(float p, float wrapped, short code) {
  float const difference = std::fabs(wrapped + twoPi * static_cast<float>(code) - p);
  return certainty(code) * (difference < pi ? 1.0F : -1.0F);
}

/// Trusts the certain pixels that more of their neighbours agree with than contradict.
VORN_TARGET_CLONES
void agreementRow(AgreementRows const& rows, int n) {
  float const* const phase = rows.phase;
  short const* const code = rows.code;
  float const* const phaseAbove = phase - rows.phaseStep;
  float const* const phaseBelow = phase + rows.phaseStep;
  short const* const codeLeft = code - 1;
  short const* const codeRight = code + 1;
  short const* const codeAbove = code - rows.codeStep;
  short const* const codeBelow = code + rows.codeStep;
  uchar* const mask = rows.mask;
  uchar* const state = rows.state;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const p = phase[x] + twoPi * static_cast<float>(code[x]);
    float const votes = vote(p, phase[x - 1], codeLeft[x]) + vote(p, phase[x + 1], codeRight[x]) +
                        vote(p, phaseAbove[x], codeAbove[x]) + vote(p, phaseBelow[x], codeBelow[x]);
    // Whole numbers clamped rather than conditions, which the compiler turns into jumps.
    float const agreement = 255.0F * certainty(code[x]) * votes;
    float const open = std::min(static_cast<float>(mask[x]), std::max(agreement + 255.0F, 0.0F));
    float const known = std::min(std::max(agreement, 0.0F), static_cast<float>(knownState));
    mask[x] = static_cast<uchar>(static_cast<int>(open));
    state[x] = static_cast<uchar>(static_cast<int>(open > 0.0F ? known : static_cast<float>(closedState)));
  }
}

VORN_TARGET_CLONES
void forgetUntrusted(uchar const* state, short* code, int n) {
  for (int x = 0; x < n; ++x) {
    code[x] = state[x] == knownState ? code[x] : short{-1};
  }
}

} // namespace

void trustCodes(std::vector<cv::Mat> const& phaseImages, ScanDecodingSettings const& settings,
                cv::Mat_<uchar> const& lit, ScanDecodingBuffers& buffers) {
  cv::Mat_<float> const& phase = buffers.phase.inner;
  cv::Mat_<short>& code = buffers.code.inner;
  cv::Mat_<uchar>& mask = buffers.mask.inner;
  cv::Mat_<uchar>& state = buffers.state.inner;
  auto const confidence = static_cast<float>(settings.minPhaseConfidence);
  TrustLimits const limits{
      2.0F * static_cast<float>(settings.minAmplitude),
      std::max(0.0F, static_cast<float>(settings.minContrast - 2 * settings.minAmplitude)),
      (1.0F - confidence) / confidence,
      codeBorder(settings.period),
      twoPi * borderZone / static_cast<float>(settings.period),
      certainPartOfMagnitude};
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      trustRow({{phaseImages[0].ptr(y), phaseImages[1].ptr(y), phaseImages[2].ptr(y), phaseImages[3].ptr(y)},
                phase[y],
                buffers.magnitude.inner[y],
                lit[y],
                buffers.margin[y],
                mask[y],
                code[y]},
               limits, phase.cols);
    }
  });
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      agreementRow({phase[y], code[y], static_cast<std::ptrdiff_t>(phase.step1()),
                    static_cast<std::ptrdiff_t>(code.step1()), mask[y], state[y]},
                   phase.cols);
    }
  });
  // Only after every row has voted.
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      forgetUntrusted(state[y], code[y], phase.cols);
    }
  });
}

void settleOrders(CodeCheck const& codes, ScanDecodingBuffers& buffers) {
  cv::Mat_<float>& phase = buffers.phase.inner;
  buffers.phase.setBorder(unknownPhase);
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      float const* const magnitude = buffers.magnitude.inner[y];
      short const* const code = buffers.code.inner[y];
      uchar const* const state = buffers.state.inner[y];
      float* const phases = phase[y];
      for (int x = 0; x < phase.cols; ++x) {
        bool const grown = code[x] < 0;
        if (state[x] != knownState || phases[x] < 0.0F ||
            (grown && !codes.fit({x, y}, phases[x], magnitude[x]))) {
          phases[x] = unknownPhase;
        }
      }
    }
  });
}

} // namespace vorn::mv::sl
