// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/step_error.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace vorn::mv::sl {

namespace {

/// Adds what one pixel says of fringes 0 and `other` to the normal equations of all factors.
class Agreement {
public:
  Agreement(std::vector<double> const& periods, std::vector<int> const& steps)
      : periods_(periods), steps_(steps),
        normal_(cv::Mat::zeros(static_cast<int>(StepError::terms * periods.size()),
                               static_cast<int>(StepError::terms * periods.size()), CV_64F)),
        right_(cv::Mat::zeros(normal_.rows, 1, CV_64F)) {}

  void add(AgreementSample const& sample, std::size_t other, double limit,
           std::vector<StepError> const& known) {
    std::vector<double> row(static_cast<std::size_t>(normal_.rows));
    double rest = sample.coordinates[other] - sample.coordinates[0];
    double left = rest;
    for (std::size_t const fringe : {std::size_t{0}, other}) {
      if (steps_[fringe] == 0) {
        continue;
      }
      double const sign = fringe == 0 ? -1.0 : 1.0;
      auto const terms = StepError::termsAt(sample.turns[fringe], steps_[fringe]);
      for (std::size_t t = 0; t < terms.size(); ++t) {
        row[fringe * terms.size() + t] = sign * periods_[fringe] * terms[t];
      }
      left -= sign * periods_[fringe] * known[fringe].at(sample.turns[fringe]);
    }
    if (std::fabs(left) > limit * periods_[other]) {
      return; // the two are on different orders, or surfaces
    }
    double const weight = 1.0 / (periods_[other] * periods_[other]);
    for (std::size_t i = 0; i < row.size(); ++i) {
      right_.at<double>(static_cast<int>(i)) += weight * row[i] * rest;
      for (std::size_t k = 0; k < row.size(); ++k) {
        normal_.at<double>(static_cast<int>(i), static_cast<int>(k)) += weight * row[i] * row[k];
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
    // What no sample tells of stays 0.
    cv::Mat normal = normal_.clone();
    double const small = 1e-6 * std::max(cv::trace(normal)[0], 1e-9);
    for (int i = 0; i < normal.rows; ++i) {
      normal.at<double>(i, i) += small;
    }
    cv::Mat solution;
    cv::solve(normal, right_, solution, cv::DECOMP_CHOLESKY);
    for (std::size_t f = 0; f < errors.size(); ++f) {
      errors[f].steps = steps_[f];
      for (std::size_t t = 0; t < StepError::terms; ++t) {
        errors[f].factors[t] = solution.at<double>(static_cast<int>(f * StepError::terms + t));
      }
    }
    return errors;
  }

private:
  std::vector<double> const& periods_;
  std::vector<int> const& steps_;
  cv::Mat normal_;
  cv::Mat right_;
  int count_ = 0;
};

} // namespace

std::array<double, StepError::terms> StepError::termsAt(double turns, int steps) {
  double const angle = 2 * CV_PI * steps * turns;
  double const s = std::sin(angle);
  double const c = std::cos(angle);
  return {s, c, 2 * s * c, c * c - s * s};
}

double StepError::at(double turns) const {
  if (steps == 0) {
    return 0.0;
  }
  auto const values = termsAt(turns, steps);
  double sum = 0.0;
  for (std::size_t t = 0; t < values.size(); ++t) {
    sum += factors[t] * values[t];
  }
  return sum;
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
  // Without what the first rounds cannot explain the next ones see better.
  for (double const limit : {0.3, 0.1, 0.05, 0.05}) {
    Agreement agreement(periods, steps);
    for (AgreementSample const& sample : samples) {
      for (std::size_t other = 1; other < periods.size(); ++other) {
        agreement.add(sample, other, limit, errors);
      }
    }
    errors = agreement.solved();
  }
  return errors;
}

} // namespace vorn::mv::sl
