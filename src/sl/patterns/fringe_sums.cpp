// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/fringe_sums.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <set>

#include <opencv2/core.hpp>

#include "core/pi.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Whether the steps lie evenly over one turn, at one exposure.
bool isEven(PatternSet const& set, Fringe const& fringe) {
  std::set<long> places;
  double const count = static_cast<double>(fringe.images.size());
  double const first = angleOf(set.images[fringe.images[0]]);
  for (std::size_t const i : fringe.images) {
    double const steps = (angleOf(set.images[i]) - first) / (2 * CV_PI) * count;
    constexpr double tolerance = 1e-6;
    if (std::fabs(steps - std::round(steps)) > tolerance ||
        set.images[i].exposure != set.images[fringe.images[0]].exposure) {
      return false;
    }
    long const place = std::lround(steps) % static_cast<long>(fringe.images.size());
    places.insert(place < 0 ? place + static_cast<long>(fringe.images.size()) : place);
  }
  return places.size() == fringe.images.size();
}

NoiseSource sourceOf(PatternSet const& set, Fringe const& fringe) {
  constexpr std::size_t three = 3;
  constexpr std::size_t four = 4;
  if (fringe.images.size() == three) {
    return NoiseSource::Means;
  }
  if (!isEven(set, fringe)) {
    return NoiseSource::Squares;
  }
  return fringe.images.size() == four ? NoiseSource::Excess : NoiseSource::Quadrature;
}

/// Rows of a matrix as plain numbers, for loops.
struct Inverted {
  float m00, m01, m02, m11, m12, m22;

  explicit Inverted(cv::Matx33f const& m)
      : m00(m(0, 0)), m01(m(0, 1)), m02(m(0, 2)), m11(m(1, 1)), m12(m(1, 2)), m22(m(2, 2)) {}
};

/// Mean level, and cosine and sine parts in the place of the sums' order: of a fringe B sin(phase + offset)
/// the part of cos(offset) is B sin(phase).
VORN_TARGET_CLONES
void solveRow(SumRow const& sums, Inverted const& inverted, int n, float* __restrict mean,
              float* __restrict sinePart, float* __restrict cosinePart) {
  Inverted const m = inverted;
  float const* const s0 = sums.mean;
  float const* const s1 = sums.cosine;
  float const* const s2 = sums.sine;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    mean[x] = m.m00 * s0[x] + m.m01 * s1[x] + m.m02 * s2[x];
    sinePart[x] = m.m01 * s0[x] + m.m11 * s1[x] + m.m12 * s2[x];
    cosinePart[x] = m.m02 * s0[x] + m.m12 * s1[x] + m.m22 * s2[x];
  }
}

/// The phase's variance is the noise's times d' M d / B^2, d the direction across (sine, cosine).
VORN_TARGET_CLONES
void precisionRow(float const* sinePart, float const* cosinePart, float const* amplitude,
                  Inverted const& inverted, int n, float* __restrict precision) {
  Inverted const m = inverted;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const s = sinePart[x];
    float const c = cosinePart[x];
    float const spread = c * c * m.m11 - 2.0F * s * c * m.m12 + s * s * m.m22;
    precision[x] = amplitude[x] * amplitude[x] / std::sqrt(std::max(spread, 1e-30F));
  }
}

VORN_TARGET_CLONES
bool isAnyLost(std::uint32_t const* lost, int n) {
  std::uint32_t any = 0;
  for (int x = 0; x < n; ++x) {
    any |= lost[x];
  }
  return any != 0;
}

VORN_TARGET_CLONES
void levelRow(float const* mean, float perBin, int n, uchar* __restrict level) {
  for (int x = 0; x < n; ++x) {
    // What is not a number comes to the first bin.
    float const bin = std::min(std::max(0.0F, mean[x] * perBin), static_cast<float>(levelBins - 1));
    level[x] = static_cast<uchar>(static_cast<int>(bin));
  }
}

/// Even numbers in [-0.5, 0.5) that repeat: what is whole is spread over what it was rounded from.
float spreadAt(int x, int row) {
  std::uint32_t h =
      static_cast<std::uint32_t>(x) * 0x9E3779B1U + static_cast<std::uint32_t>(row) * 0x85EBCA77U;
  h ^= h >> 15U;
  h *= 0x2C1B3C6DU;
  h ^= h >> 13U;
  constexpr float perUnit = 1.0F / 16777216.0F;
  return static_cast<float>(h >> 8U) * perUnit - 0.5F;
}

constexpr int sumPlanes = 5;

} // namespace

FringeDesign::FringeDesign(PatternSet const& set, Fringe const& of)
    : fringe(of), equations(set, of), source(sourceOf(set, of)),
      firstAngle(angleOf(set.images[of.images[0]])) {}

StepWeights FringeDesign::weights(std::size_t image) const {
  FringeEquations::Row const& row = equations.row(image);
  StepWeights w{row.gain, row.cosine, row.sine, 0.0F, 0.0F};
  double const angle = std::atan2(row.sine, row.cosine);
  if (source == NoiseSource::Excess) {
    w.first = static_cast<float>(std::cos(2.0 * (angle - firstAngle)));
  } else if (source == NoiseSource::Quadrature) {
    w.first = static_cast<float>(std::cos(2.0 * angle));
    w.second = static_cast<float>(std::sin(2.0 * angle));
  }
  return w;
}

FringeSums::FringeSums(FringeDesign const& design, int firstRow, int rows, int columns)
    : design_(design), firstRow_(firstRow), columns_(columns), whole_(design.equations.inverse(0)),
      lost_(rows, columns, 0), sine_(static_cast<std::size_t>(columns)), cosine_(sine_),
      cosineOfFirst_(static_cast<float>(std::cos(2.0 * design.firstAngle))),
      sineOfFirst_(static_cast<float>(std::sin(2.0 * design.firstAngle))) {
  int const extra = design.source == NoiseSource::Quadrature ? 0
                    : design.source == NoiseSource::Excess   ? 1
                                                             : 2;
  sums_ = cv::Mat_<float>::zeros(rows, (sumPlanes - extra) * columns);
  for (std::size_t i = 0; i < design.equations.size(); ++i) {
    FringeEquations::Row const& own = design.equations.row(i);
    cv::Vec3d const weights(own.gain, own.cosine, own.sine);
    normal_ += weights * weights.t();
  }
}

SumRow FringeSums::sumsOf(int row) {
  float* const first = sums_[row - firstRow_];
  int const planes = sums_.cols / columns_;
  auto const plane = [&](int k) { return k < planes ? first + k * columns_ : nullptr; };
  return {plane(0), plane(1), plane(2), plane(3), plane(4), lost_.ptr<std::uint32_t>(row - firstRow_)};
}

void FringeSums::add(std::size_t image, float const* samples, SampleRange const& range, int row) {
  isWhole_ = range.isWhole;
  StepWeights const weights = design_.weights(image);
  if (design_.source == NoiseSource::Squares && row % range.rowStep == 0) {
    addSquares(samples, weights, row);
  }
  addStep(samples, weights, range.white, 1U << static_cast<unsigned>(image), columns_, sumsOf(row));
}

/// Rows whose noise is counted keep their sums in double too: what the samples leave of a fringe is the small
/// difference of large squares.
void FringeSums::addSquares(float const* samples, StepWeights const& weights, int row) {
  std::vector<cv::Vec4d>& squares = squares_[row];
  squares.resize(static_cast<std::size_t>(columns_));
  for (int x = 0; x < columns_; ++x) {
    auto const sample = static_cast<double>(samples[x]);
    squares[static_cast<std::size_t>(x)] +=
        sample * cv::Vec4d(sample, weights.mean, weights.cosine, weights.sine);
  }
}

/// The sum of the squares of what the samples deviate from the fringe. Errors of the fringe enter by their
/// squares only.
double FringeSums::deviationAt(int x, int row, float mean) const {
  auto const at = static_cast<std::size_t>(x);
  cv::Vec4d const& sums = squares_.at(row)[at];
  cv::Vec3d const fringe(mean, sine_[at], cosine_[at]);
  return sums[0] - 2.0 * fringe.dot({sums[1], sums[2], sums[3]}) + fringe.dot(normal_ * fringe);
}

FringeEquations::Inverse const& FringeSums::inverse(std::uint32_t lost) {
  auto const found = std::find_if(inverses_.begin(), inverses_.end(),
                                  [&](auto const& known) { return known.first == lost; });
  if (found != inverses_.end()) {
    // The next pixel has most likely lost the same.
    std::rotate(inverses_.begin(), found, found + 1);
    return inverses_.front().second;
  }
  inverses_.insert(inverses_.begin(), {lost, design_.equations.inverse(lost)});
  return inverses_.front().second;
}

/// Pixels with clipped samples, one by one.
void FringeSums::solveLost(int row, SolvedRow const& out) {
  SumRow const sums = sumsOf(row);
  if (!isAnyLost(sums.lost, columns_)) {
    return;
  }
  for (int x = 0; x < columns_; ++x) {
    if (sums.lost[x] == 0) {
      continue;
    }
    FringeEquations::Inverse const& own = inverse(sums.lost[x]);
    if (!own.isSolvable) {
      out.phase[x] = -1.0F;
      out.precision[x] = 0.0F;
      out.amplitude[x] = 0.0F;
      out.mean[x] = std::numeric_limits<float>::quiet_NaN(); // no bit is above or below it
      continue;
    }
    Inverted const m(own.matrix);
    SumRow const at{sums.mean + x, sums.cosine + x, sums.sine + x, nullptr, nullptr, nullptr};
    float sine = 0.0F;
    float cosine = 0.0F;
    solveRow(at, m, 1, out.mean + x, &sine, &cosine);
    polarRow(&sine, &cosine, 1, out.phase + x, out.amplitude + x);
    precisionRow(&sine, &cosine, out.amplitude + x, m, 1, out.precision + x);
  }
}

void FringeSums::solve(int row, SampleRange const& range, float least, SolvedRow const& out,
                       FringeTally& tally) {
  SumRow const sums = sumsOf(row);
  Inverted const m(whole_.matrix);
  solveRow(sums, m, columns_, out.mean, sine_.data(), cosine_.data());
  polarRow(sine_.data(), cosine_.data(), columns_, out.phase, out.amplitude);
  precisionRow(sine_.data(), cosine_.data(), out.amplitude, m, columns_, out.precision);
  solveLost(row, out);
  levelRow(out.mean, 1.0F / range.levelStep, columns_, out.level);
  if (row % range.rowStep == 0) {
    tallyRow(row, least, out, tally);
  }
}

/// Cosine and sine of twice the phase.
std::pair<float, float> FringeSums::doubledAt(int x) const {
  float const s = sine_[static_cast<std::size_t>(x)];
  float const c = cosine_[static_cast<std::size_t>(x)];
  float const scale = 1.0F / std::max(s * s + c * c, 1e-30F);
  return {(c * c - s * s) * scale, 2.0F * s * c * scale};
}

/// An estimate of the variance of an image, which it exceeds half of the time; negative for none.
float FringeSums::varianceAt(int x, int row, SumRow const& sums, SolvedRow const& out,
                             FringeTally& tally) const {
  float const amplitude = out.amplitude[x];
  auto const count = static_cast<float>(design_.equations.size());
  float const one = medianOfSquares(1);
  switch (design_.source) {
  case NoiseSource::Squares: {
    int const degrees = static_cast<int>(design_.equations.size()) - 3;
    auto const deviation = static_cast<float>(deviationAt(x, row, out.mean[x]));
    return std::max(0.0F, deviation) / medianOfSquares(degrees);
  }
  case NoiseSource::Quadrature: {
    // Gamma makes -cos(2 (phase + offset)) of a fringe sin(phase + offset).
    auto const [c, s] = doubledAt(x);
    float const across = sums.first[x] * s + sums.second[x] * c;
    float const along = sums.second[x] * s - sums.first[x] * c;
    tally.harmonic += static_cast<double>(2.0F / count * along * amplitude);
    tally.power += static_cast<double>(amplitude * amplitude);
    return across * across / (0.5F * count * one);
  }
  case NoiseSource::Excess: {
    auto const [cosine, sine] = doubledAt(x);
    float const c = cosine * cosineOfFirst_ - sine * sineOfFirst_;
    constexpr float nearNone = 0.25F;
    constexpr float nearAll = 0.7F;
    float const excess = sums.first[x];
    if (std::fabs(c) > nearAll) {
      tally.harmonic += static_cast<double>(-excess / (count * c) * amplitude);
      tally.power += static_cast<double>(amplitude * amplitude);
    }
    if (std::fabs(c) > nearNone) {
      return -1.0F;
    }
    float const spread = excess + (isWhole_ ? spreadAt(x, row) : 0.0F);
    return spread * spread / (count * one);
  }
  case NoiseSource::Means:
    break;
  }
  if (x == 0 || x + 1 >= columns_ || (sums.lost[x - 1] | sums.lost[x + 1]) != 0) {
    return -1.0F;
  }
  float const bend = out.mean[x - 1] - 2.0F * out.mean[x] + out.mean[x + 1];
  constexpr float ofBend = 6.0F;
  return bend * bend / (ofBend * whole_.matrix(0, 0) * one);
}

void FringeSums::tallyRow(int row, float least, SolvedRow const& out, FringeTally& tally) {
  SumRow const sums = sumsOf(row);
  for (int x = 0; x < columns_; ++x) {
    if (sums.lost[x] != 0 || !(out.amplitude[x] >= least)) {
      continue;
    }
    float const variance = varianceAt(x, row, sums, out, tally);
    if (variance >= 0.0F) {
      tally.noise.add(out.level[x], variance);
    }
  }
}

} // namespace vorn::mv::sl
