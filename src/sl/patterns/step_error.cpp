// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/step_error.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <opencv2/core.hpp>

namespace vorn::mv::sl {

namespace {

using Terms = std::array<double, StepError::terms>;

/// Adds what one pixel says of fringes 0 and `other` to the normal equations of all factors.
class Agreement {
public:
  Agreement(std::vector<double> const& periods, std::vector<int> const& steps)
      : periods_(periods), steps_(steps), pairs_(periods.size() - 1) {}

  /// @param terms of each fringe at the sample
  void add(AgreementSample const& sample, std::vector<Terms> const& terms, std::size_t other, double limit,
           std::vector<StepError> const& known) {
    double const rest = sample.coordinates[other] - sample.coordinates[0];
    double const left =
        rest + periods_[0] * known[0].sum(terms[0]) - periods_[other] * known[other].sum(terms[other]);
    if (std::fabs(left) > limit * periods_[other]) {
      return; // the two are on different orders, or surfaces
    }
    std::array<double, pairTerms> row{};
    for (std::size_t t = 0; t < StepError::terms; ++t) {
      row[t] = steps_[0] == 0 ? 0.0 : -periods_[0] * terms[0][t];
      row[StepError::terms + t] = steps_[other] == 0 ? 0.0 : periods_[other] * terms[other][t];
    }
    double const weight = 1.0 / (periods_[other] * periods_[other]);
    Pair& pair = pairs_[other - 1];
    for (std::size_t i = 0; i < row.size(); ++i) {
      double const weighted = weight * row[i];
      pair.right[i] += weighted * rest;
      for (std::size_t k = 0; k < row.size(); ++k) {
        pair.normal[i * row.size() + k] += weighted * row[k];
      }
    }
    ++count_;
  }

  std::vector<StepError> solved() const {
    std::vector<StepError> errors(periods_.size());
    constexpr int fewest = 1000;
    if (count_ < fewest) {
      return errors;
    }
    auto const size = static_cast<int>(StepError::terms * periods_.size());
    cv::Mat normal = cv::Mat::zeros(size, size, CV_64F);
    cv::Mat right = cv::Mat::zeros(size, 1, CV_64F);
    for (std::size_t p = 0; p < pairs_.size(); ++p) {
      auto const placeOf = [p](std::size_t i) {
        return static_cast<int>(i < StepError::terms ? i : i + p * StepError::terms);
      };
      for (std::size_t i = 0; i < pairTerms; ++i) {
        right.at<double>(placeOf(i)) += pairs_[p].right[i];
        for (std::size_t k = 0; k < pairTerms; ++k) {
          normal.at<double>(placeOf(i), placeOf(k)) += pairs_[p].normal[i * pairTerms + k];
        }
      }
    }
    // What no sample tells of stays 0.
    double const small = 1e-6 * std::max(cv::trace(normal)[0], 1e-9);
    for (int i = 0; i < normal.rows; ++i) {
      normal.at<double>(i, i) += small;
    }
    cv::Mat solution;
    cv::solve(normal, right, solution, cv::DECOMP_CHOLESKY);
    for (std::size_t f = 0; f < errors.size(); ++f) {
      errors[f].steps = steps_[f];
      for (std::size_t t = 0; t < StepError::terms; ++t) {
        errors[f].factors[t] = solution.at<double>(static_cast<int>(f * StepError::terms + t));
      }
    }
    return errors;
  }

private:
  static constexpr std::size_t pairTerms = 2 * StepError::terms;
  /// Of the finest fringe and another one.
  struct Pair {
    std::array<double, pairTerms * pairTerms> normal{};
    std::array<double, pairTerms> right{};
  };

  std::vector<double> const& periods_;
  std::vector<int> const& steps_;
  std::vector<Pair> pairs_;
  int count_ = 0;
};

} // namespace

std::array<double, StepError::terms> StepError::termsAt(double turns, int steps) {
  double const angle = 2 * CV_PI * steps * turns;
  double const s = std::sin(angle);
  double const c = std::cos(angle);
  return {s, c, 2 * s * c, c * c - s * s};
}

double StepError::sum(std::array<double, terms> const& values) const {
  return std::inner_product(factors.begin(), factors.end(), values.begin(), 0.0);
}

double StepError::at(double turns) const {
  return steps == 0 ? 0.0 : sum(termsAt(turns, steps));
}

double StepError::largest() const {
  double most = 0.0;
  constexpr int places = 64;
  for (int k = 0; k < places && steps > 0; ++k) {
    most = std::max(most, std::fabs(at(static_cast<double>(k) / places / steps)));
  }
  return most;
}

std::vector<StepError> stepErrors(std::vector<double> const& periods, std::vector<int> const& steps,
                                  std::vector<AgreementSample> const& samples) {
  std::vector<StepError> errors(periods.size());
  std::vector<std::vector<Terms>> terms(samples.size());
  for (std::size_t s = 0; s < samples.size(); ++s) {
    for (std::size_t i = 0; i < periods.size(); ++i) {
      terms[s].push_back(StepError::termsAt(samples[s].turns[i], steps[i]));
    }
  }
  // Without what the first rounds cannot explain the next ones see better.
  for (double const limit : {0.3, 0.1, 0.05, 0.05}) {
    Agreement agreement(periods, steps);
    for (std::size_t s = 0; s < samples.size(); ++s) {
      for (std::size_t other = 1; other < periods.size(); ++other) {
        agreement.add(samples[s], terms[s], other, limit, errors);
      }
    }
    errors = agreement.solved();
  }
  return errors;
}

} // namespace vorn::mv::sl
