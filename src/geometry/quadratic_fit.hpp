// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// 1, x, y, x^2, xy, y^2.
inline cv::Vec6d quadraticTerms(double x, double y) {
  return {1.0, x, y, x * x, x * y, y * y};
}

/// Weighted least squares of surfaces over the plane, as many at once as there are values at a place: with
/// the first three of the quadratic terms planes, with all six quadratic ones.
///
/// By normal equations: centre and scale the places to about -1 to 1.
template <int termCount, int valueCount>
class QuadraticFit {
public:
  struct Surfaces {
    cv::Matx<double, termCount, valueCount> coefficients;
    double originVariance;   ///< of the value at the origin, for samples of weight and variance 1
    cv::Vec2d slopeVariance; ///< likewise of the slopes along x and y there
  };

  using Square = cv::Matx<double, termCount, termCount>;

  void add(cv::Vec6d const& terms, cv::Vec<double, valueCount> const& values, double weight = 1.0) {
    addPlace(terms, weight);
    addValues(terms, values, weight);
  }

  /// Where a sample lies, which alone tells `inverse`.
  void addPlace(cv::Vec6d const& terms, double weight = 1.0) {
    for (int i = 0; i < termCount; ++i) {
      double const weighted = weight * terms[i];
      for (int j = 0; j <= i; ++j) {
        normal_(i, j) += weighted * terms[j];
      }
    }
  }

  /// What a sample says.
  void addValues(cv::Vec6d const& terms, cv::Vec<double, valueCount> const& values, double weight = 1.0) {
    for (int i = 0; i < termCount; ++i) {
      double const weighted = weight * terms[i];
      for (int k = 0; k < valueCount; ++k) {
        right_(i, k) += weighted * values[k];
      }
    }
  }

  /// Nothing when the samples do not determine the surfaces.
  std::optional<Surfaces> solve() const {
    auto const inverted = inverse();
    return inverted ? std::optional(surfaces(*inverted)) : std::nullopt;
  }

  /// The inverse of the normal equations; nothing when the samples do not determine the surfaces.
  std::optional<Square> inverse() const {
    Square normal = normal_;
    for (int i = 0; i < termCount; ++i) {
      for (int j = i + 1; j < termCount; ++j) {
        normal(i, j) = normal(j, i);
      }
    }
    bool isSolved = false;
    Square const inverted = normal.inv(cv::DECOMP_CHOLESKY, &isSolved);
    return isSolved ? std::optional(inverted) : std::nullopt;
  }

  /// @param inverse of samples at the same places
  Surfaces surfaces(Square const& inverse) const {
    return {inverse * right_, inverse(0, 0), {inverse(1, 1), inverse(2, 2)}};
  }

private:
  Square normal_ = Square::zeros(); // lower half
  cv::Matx<double, termCount, valueCount> right_ = cv::Matx<double, termCount, valueCount>::zeros();
};

} // namespace vorn::mv
