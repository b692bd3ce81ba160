// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "sl/patterns/fringe_equations.hpp"
#include "sl/patterns/noise_tally.hpp"
#include "sl/patterns/pixel_rows.hpp"

namespace vorn::mv::sl {

/// What the samples of a fringe tell of the noise beside its phase.
enum class NoiseSource {
  Squares,    ///< their deviations from the fringe: steps that are uneven, or at several exposures
  Quadrature, ///< the part of the second harmonic that gamma does not make: five even steps or more
  Excess,     ///< the second harmonic where gamma makes none of it: four even steps
  Means       ///< how the mean level changes along a row: three steps
};

/// A fringe's images and what is done with them.
struct FringeDesign {
  Fringe fringe;
  FringeEquations equations;
  NoiseSource source;
  double firstAngle; ///< of the first step, radians

  FringeDesign(PatternSet const& set, Fringe const& of);

  StepWeights weights(std::size_t image) const;
};

/// What images hold besides light.
struct SampleRange {
  float black;     ///< taken off
  float white;     ///< from here on a sample is clipped; black is off already
  float levelStep; ///< grey levels of a bin of `NoiseTally`
  bool isWhole;    ///< samples are rounded to whole numbers
  int rowStep;     ///< of rows, so many are one of which the noise is counted
};

/// What the sums of a row come to. No pointer is null.
struct SolvedRow {
  float* phase;     ///< [0, 2 pi); negative when the samples do not determine it
  float* precision; ///< its standard deviation is the noise of an image over that
  float* amplitude;
  float* mean;  ///< at the longest exposure; NaN when the samples do not determine it
  uchar* level; ///< bin of `NoiseTally`
};

/// What is counted while rows are solved, of each by itself.
struct FringeTally {
  NoiseTally noise;
  double harmonic = 0.0; ///< sum of second harmonic times amplitude
  double power = 0.0;    ///< sum of squared amplitudes
};

/// Running sums over the images of one fringe, for some rows.
class FringeSums {
public:
  FringeSums(FringeDesign const& design, int firstRow, int rows, int columns);

  void add(std::size_t image, float const* samples, SampleRange const& range, int row);

  /// @param least fringe amplitude of a pixel that tells of the noise
  void solve(int row, SampleRange const& range, float least, SolvedRow const& out, FringeTally& tally);

private:
  SumRow sumsOf(int row);
  void addSquares(float const* samples, StepWeights const& weights, int row);
  double deviationAt(int x, int row, float mean) const;
  FringeEquations::Inverse const& inverse(std::uint32_t lost);
  void solveLost(int row, SolvedRow const& out);
  void tallyRow(int row, float least, SolvedRow const& out, FringeTally& tally);
  std::pair<float, float> doubledAt(int x) const;
  float varianceAt(int x, int row, SumRow const& sums, SolvedRow const& out, FringeTally& tally) const;

  FringeDesign const& design_;
  int firstRow_;
  int columns_;
  FringeEquations::Inverse whole_;
  cv::Mat_<float> sums_; ///< of each row, one sum after another
  cv::Mat_<int> lost_;
  /// Of a row: sum of squares and sums for mean, cosine and sine; for `NoiseSource::Squares`.
  std::map<int, std::vector<cv::Vec4d>> squares_;
  cv::Matx33d normal_;  ///< equations for mean, cosine and sine, of all samples
  bool isWhole_ = true; ///< whether samples are whole numbers
  std::vector<std::pair<std::uint32_t, FringeEquations::Inverse>> inverses_;
  std::vector<float> sine_, cosine_;  ///< parts of the row that is being solved
  float cosineOfFirst_, sineOfFirst_; ///< of twice the first step's angle
};

} // namespace vorn::mv::sl
