// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

#include "core/median.hpp"
#include "registration/pair_equations.hpp"

namespace vorn::mv {

/// The biweight's usual reach: 95 % of the efficiency of least squares on normally distributed residuals.
constexpr double cutoffOverSigma = 4.685;
/// Farther pairs than so many median distances are never the same place.
constexpr double gateOverMedian = 3.0;

/// A value of valid pairs, of at most about 40000, spread over all: their median is exact to a percent.
template <class Value>
std::vector<double> valuesOfPairs(std::vector<SurfacePair> const& pairs, Value const& value) {
  constexpr std::size_t most = 40000;
  std::vector<double> values;
  // Odd, so that it takes all columns of a patch in turn.
  std::size_t const stride = std::max<std::size_t>(1, pairs.size() / most) | 1U;
  for (std::size_t i = 0; i < pairs.size(); i += stride) {
    if (pairs[i].isValid) {
      values.push_back(value(pairs[i]));
    }
  }
  return values;
}

/// Robust standard deviation of the pairs' residuals.
inline double sigmaOfPairs(std::vector<SurfacePair> const& pairs) {
  // From a median of absolute values to a standard deviation, for normally distributed ones.
  constexpr double sigmaOverMedian = 1.4826;
  return sigmaOverMedian *
         medianOf(valuesOfPairs(pairs, [](SurfacePair const& pair) { return std::abs(pair.residual); }));
}

} // namespace vorn::mv
