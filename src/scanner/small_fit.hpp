// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include <opencv2/core.hpp>

namespace vorn::mv {

/// Normal equations of few unknowns.
template <int count>
class SmallFit {
public:
  void add(cv::Vec<double, count> const& terms, double value, double weight = 1) {
    for (int i = 0; i < count; ++i) {
      right_[i] += weight * terms[i] * value;
      for (int j = 0; j < count; ++j) {
        normal_(i, j) += weight * terms[i] * terms[j];
      }
    }
  }
  std::optional<cv::Vec<double, count>> solve() const {
    bool isSolved = false;
    auto const inverse = normal_.inv(cv::DECOMP_CHOLESKY, &isSolved);
    return isSolved ? std::optional<cv::Vec<double, count>>(inverse * right_) : std::nullopt;
  }
  /// What a solution explains of the sum of the values' squares.
  double explainedBy(cv::Vec<double, count> const& solution) const { return solution.dot(right_); }

private:
  cv::Matx<double, count, count> normal_ = cv::Matx<double, count, count>::zeros();
  cv::Vec<double, count> right_;
};

} // namespace vorn::mv
