// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/stripe_orders.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float pi = 3.14159265F;
constexpr float twoPi = 6.2831853F;

/// Half a pixel before the wrap, where the next stripe's code begins, as a part of the period.
float borderPhase(int period) {
  return twoPi * (1.0F - 0.5F / static_cast<float>(period));
}

/// Projector pixels on either side of that place where codes are not trusted, however certain they look.
constexpr float borderZone = 0.2F;
/// Part of the fringe amplitude that a code image must lie from the threshold to count as certain.
constexpr float certainMargin = 0.4F;

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

/// One pixel and the way to the next along a row or a column.
struct Line {
  float const* phase;
  short* code;
  uchar* state;
  std::ptrdiff_t phaseStep;
  std::ptrdiff_t codeStep;
  std::ptrdiff_t stateStep;
};

constexpr int longestBridge = 32;
/// Largest change of phase from one pixel to the next that is still followed.
constexpr float stepLimit = 0.8F * pi;

/// The stripe whose code a pixel's place belongs to.
float stripeAt(Line const& line, std::ptrdiff_t i, float border) {
  return static_cast<float>(line.code[i * line.codeStep]) +
         (line.phase[i * line.phaseStep] > border ? 1.0F : 0.0F);
}

/// Follows the phase from pixel 0 of `line`, whose order is known, to pixel `length`, whose order is known
/// too; gives the pixels between their orders if it arrives at the right one.
///
/// What is bridged is a border, so the ends are in different stripes; along a border, many pixels one after
/// the other are uncertain, and following them would only tell that both ends are on one surface.
void bridge(Line const& line, int length, float border) {
  short orders[longestBridge];
  if (length > 2 && stripeAt(line, 0, border) == stripeAt(line, length, border)) {
    return;
  }
  float p = line.phase[0] + twoPi * static_cast<float>(line.code[0]);
  for (int i = 1; i <= length; ++i) {
    float const wrapped = line.phase[i * line.phaseStep];
    float const order = std::floor((p - wrapped) / twoPi + 0.5F);
    float const next = wrapped + twoPi * order;
    if (std::fabs(next - p) > stepLimit || order < 0.0F) {
      return;
    }
    p = next;
    orders[i - 1] = static_cast<short>(order);
  }
  if (orders[length - 1] != line.code[length * line.codeStep]) {
    return;
  }
  for (int i = 1; i < length; ++i) {
    line.code[i * line.codeStep] = orders[i - 1];
    line.state[i * line.stateStep] = knownState;
  }
}

void bridgeRow(float const* phase, short* code, uchar* state, int n, int longest, float border) {
  int trusted = -1;
  for (int x = 0; x < n; ++x) {
    if (state[x] == knownState) {
      int const length = x - trusted;
      if (trusted >= 0 && length > 1 && length <= longest) {
        bridge({phase + trusted, code + trusted, state + trusted, 1, 1, 1}, length, border);
      }
      trusted = x;
    } else if (state[x] == closedState) {
      trusted = -1;
    }
  }
}

constexpr int columnBlock = 256;

void bridgeColumns(ScanDecodingBuffers& buffers, int firstColumn, int n, int longest, float border) {
  cv::Mat_<float>& phase = buffers.phase.inner;
  cv::Mat_<short>& code = buffers.code.inner;
  cv::Mat_<uchar>& state = buffers.state.inner;
  auto const phaseStep = static_cast<std::ptrdiff_t>(phase.step1());
  auto const codeStep = static_cast<std::ptrdiff_t>(code.step1());
  auto const stateStep = static_cast<std::ptrdiff_t>(state.step1());
  int trusted[columnBlock];
  std::fill_n(trusted, n, -1);
  for (int y = 0; y < state.rows; ++y) {
    uchar const* const states = state[y] + firstColumn;
    for (int x = 0; x < n; ++x) {
      if (states[x] == knownState) {
        int const length = y - trusted[x];
        if (trusted[x] >= 0 && length > 1 && length <= longest) {
          int const column = firstColumn + x;
          bridge({phase[trusted[x]] + column, code[trusted[x]] + column, state[trusted[x]] + column,
                  phaseStep, codeStep, stateStep},
                 length, border);
        }
        trusted[x] = y;
      } else if (states[x] == closedState) {
        trusted[x] = -1;
      }
    }
  }
}

/// What the code images of stripe `order` show, as a word: bit 0 the reference, bit k plane k.
unsigned stripeWord(int order) {
  unsigned const word = static_cast<unsigned>(order) + 2U;
  return (word & 1U) != 0 ? word ^ ~1U : word;
}

/// Whether the certain ones of a pixel's code images fit the stripe of its order or the one after or before
/// it, as far as the phase comes near to them.
bool fitsCode(std::vector<cv::Mat> const& codeImages, int y, int x, int middle, float absolutePhase,
              float marginAtLeast) {
  unsigned bits = 0;
  unsigned certain = 0;
  for (std::size_t k = 0; k < codeImages.size(); ++k) {
    int const value = codeImages[k].ptr(y)[x];
    bits |= static_cast<unsigned>(value > middle) << k;
    certain |= static_cast<unsigned>(static_cast<float>(std::abs(value - middle)) >= marginAtLeast) << k;
  }
  float const order = std::floor(absolutePhase / twoPi);
  bool const lateInStripe = absolutePhase - order * twoPi > pi;
  int const stripe = static_cast<int>(order);
  return ((bits ^ stripeWord(stripe)) & certain) == 0 ||
         ((bits ^ stripeWord(lateInStripe ? stripe + 1 : stripe - 1)) & certain) == 0;
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
      borderPhase(settings.period),
      twoPi * borderZone / static_cast<float>(settings.period),
      0.5F * certainMargin};
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
}

void bridgeStripeBorders(ScanDecodingSettings const& settings, ScanDecodingBuffers& buffers) {
  cv::Mat_<float> const& phase = buffers.phase.inner;
  float const border = borderPhase(settings.period);
  int const longest = std::min(4 * settings.period, longestBridge);
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      short* const code = buffers.code.inner[y];
      uchar* const state = buffers.state.inner[y];
      forgetUntrusted(state, code, phase.cols);
      bridgeRow(phase[y], code, state, phase.cols, longest, border);
    }
  });
  parallelRows((phase.cols + columnBlock - 1) / columnBlock, [&](int firstBlock, int endBlock) {
    for (int block = firstBlock; block < endBlock; ++block) {
      int const column = block * columnBlock;
      bridgeColumns(buffers, column, std::min(columnBlock, phase.cols - column), longest, border);
    }
  });
}

void settleOrders(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages,
                  ScanDecodingBuffers& buffers) {
  cv::Mat_<float>& phase = buffers.phase.inner;
  buffers.phase.setBorder(unknownPhase);
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      uchar const* const p0 = phaseImages[0].ptr(y);
      uchar const* const p1 = phaseImages[1].ptr(y);
      uchar const* const p2 = phaseImages[2].ptr(y);
      uchar const* const p3 = phaseImages[3].ptr(y);
      float const* const magnitude = buffers.magnitude.inner[y];
      short const* const code = buffers.code.inner[y];
      uchar const* const state = buffers.state.inner[y];
      float* const phases = phase[y];
      for (int x = 0; x < phase.cols; ++x) {
        bool const grown = code[x] < 0;
        if (state[x] != knownState || phases[x] < 0.0F ||
            (grown && !fitsCode(codeImages, y, x, (p0[x] + p1[x] + p2[x] + p3[x]) / 4, phases[x],
                                0.5F * certainMargin * magnitude[x]))) {
          phases[x] = unknownPhase;
        }
      }
    }
  });
}

} // namespace vorn::mv::sl
