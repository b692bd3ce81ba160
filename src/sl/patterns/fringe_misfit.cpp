// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/fringe_misfit.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include <opencv2/core.hpp>

namespace vorn::mv::sl {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t fewestPlaces = 50;
constexpr int ofFit = 3; ///< unknowns

double productOf(std::vector<double> const& a, std::vector<double> const& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

} // namespace

FringeEquations::Inverse const& FringeMisfit::inverse(std::uint32_t lost) const {
  auto const found = std::find_if(inverses_.begin(), inverses_.end(),
                                  [&](auto const& known) { return known.first == lost; });
  if (found != inverses_.end()) {
    return found->second;
  }
  inverses_.emplace_back(lost, design_.equations.inverse(lost));
  return inverses_.back().second;
}

/// Whether it has more samples than unknowns.
bool FringeMisfit::isFitted(Pixel const& at) const {
  FringeEquations::Inverse const& own = inverse(at.lost);
  return own.isSolvable && own.images > ofFit;
}

void FringeMisfit::fit(Assignment const& assignment, std::uint32_t leftOut) {
  images_.clear();
  for (std::size_t const i : design_.fringe.images) {
    images_.push_back(assignment[i]);
  }
  pixels_.resize(samples_.places() * KeptSamples::ofPlace);
  for (std::size_t i = 0; i < pixels_.size(); ++i) {
    std::size_t const place = i / KeptSamples::ofPlace;
    std::size_t const which = i % KeptSamples::ofPlace;
    cv::Vec3d sums;
    std::uint32_t lost = leftOut;
    for (std::size_t k = 0; k < images_.size(); ++k) {
      auto const value = static_cast<double>(samples_.at(images_[k], place)[which]);
      FringeEquations::Row const& row = design_.equations.row(k);
      if (std::isnan(value)) {
        lost |= 1U << static_cast<unsigned>(k);
      } else if ((leftOut >> k & 1U) == 0) {
        sums += value * cv::Vec3d(row.gain, row.cosine, row.sine);
      }
    }
    FringeEquations::Inverse const& own = inverse(lost);
    cv::Vec3d const solved = cv::Matx33d(own.matrix) * sums;
    pixels_[i] = {lost, own.isSolvable ? solved[0] : notANumber, solved[1], solved[2]};
  }
  fitted_ = 0;
  for (std::size_t place = 0; place < samples_.places(); ++place) {
    fitted_ += isFitted(pixel(place, 0)) ? 1 : 0;
  }
  swings_ =
      shared([&](std::size_t place, int which, std::vector<double>& out) { swingOf(place, which, out); });
}

/// The steps' values less the mean level.
void FringeMisfit::swingOf(std::size_t place, int which, std::vector<double>& out) const {
  Pixel const& at = pixel(place, which);
  out.assign(images_.size(), 0.0);
  for (std::size_t k = 0; k < images_.size(); ++k) {
    if ((at.lost >> k & 1U) == 0) {
      out[k] = static_cast<double>(samples_.at(images_[k], place)[which]) -
               static_cast<double>(design_.equations.row(k).gain) * at.mean;
    }
  }
}

void FringeMisfit::residual(std::size_t place, int which, std::vector<double>& out) const {
  Pixel const& at = pixel(place, which);
  swingOf(place, which, out);
  for (std::size_t k = 0; k < images_.size(); ++k) {
    FringeEquations::Row const& row = design_.equations.row(k);
    if ((at.lost >> k & 1U) == 0) {
      out[k] -= static_cast<double>(row.cosine) * at.sine + static_cast<double>(row.sine) * at.cosine;
    }
  }
}

/// Takes off what a fit would take for a fringe.
void FringeMisfit::projectOut(std::uint32_t lost, std::vector<double>& values) const {
  cv::Vec3d sums;
  for (std::size_t k = 0; k < values.size(); ++k) {
    FringeEquations::Row const& row = design_.equations.row(k);
    values[k] = (lost >> k & 1U) != 0 ? 0.0 : values[k];
    sums += values[k] * cv::Vec3d(row.gain, row.cosine, row.sine);
  }
  cv::Vec3d const solved = cv::Matx33d(inverse(lost).matrix) * sums;
  for (std::size_t k = 0; k < values.size(); ++k) {
    FringeEquations::Row const& row = design_.equations.row(k);
    values[k] -= (lost >> k & 1U) != 0 ? 0.0 : solved.dot({row.gain, row.cosine, row.sine});
  }
}

/// What each harmless fault would leave of the fit of a pixel: each image by itself brighter, and the
/// harmonics, in phase and across.
std::vector<std::vector<double>> FringeMisfit::disturbances(std::size_t place, int which) const {
  Pixel const& at = pixel(place, which);
  std::size_t const count = images_.size();
  std::vector<std::vector<double>> made(count + 4, std::vector<double>(count, 0.0));
  double const amplitude = std::hypot(at.sine, at.cosine);
  double const phase = std::atan2(at.sine, at.cosine);
  for (std::size_t k = 0; k < count; ++k) {
    FringeEquations::Row const& row = design_.equations.row(k);
    made[k][k] = static_cast<double>(row.gain) * at.mean + static_cast<double>(row.cosine) * at.sine +
                 static_cast<double>(row.sine) * at.cosine;
    double const angle = phase + std::atan2(static_cast<double>(row.sine), static_cast<double>(row.cosine));
    double const own = static_cast<double>(row.gain) * amplitude;
    for (std::size_t m = 0; m < 2; ++m) {
      made[count + 2 * m][k] = own * std::cos(static_cast<double>(m + 2) * angle);
      made[count + 2 * m + 1][k] = own * std::sin(static_cast<double>(m + 2) * angle);
    }
  }
  for (std::vector<double>& one : made) {
    projectOut(at.lost, one);
  }
  return made;
}

template <class Of>
Shared FringeMisfit::shared(Of const& of) const {
  Shared sums;
  std::vector<double> own;
  std::vector<double> other;
  for (std::size_t place = 0; place < samples_.places(); ++place) {
    if (!isFitted(pixel(place, 0))) {
      continue;
    }
    of(place, 0, own);
    for (int const which : {1, 2}) {
      if (isFitted(pixel(place, which))) {
        of(place, which, other);
        (which == 1 ? sums.right : sums.below).add(productOf(own, other));
      }
    }
  }
  return sums;
}

/// Along the fringes neighbours have more in common than across.
double FringeMisfit::ratio(Shared const& rest) const {
  bool const isRight = swings_.right.sum > swings_.below.sum;
  double const swing = (isRight ? swings_.right : swings_.below).sum;
  double const left = (isRight ? rest.right : rest.below).beyondChance();
  return fitted_ >= fewestPlaces && swing > 0.0 ? std::sqrt(left / swing) : notANumber;
}

double FringeMisfit::raw() const {
  return ratio(
      shared([&](std::size_t place, int which, std::vector<double>& out) { residual(place, which, out); }));
}

double FringeMisfit::explained() const {
  std::size_t const unknowns = images_.size() + 4;
  auto const size = static_cast<int>(unknowns);
  cv::Mat_<double> normal(size, size, 0.0);
  cv::Mat_<double> right(size, 1, 0.0);
  std::vector<double> rest;
  for (std::size_t place = 0; place < samples_.places(); ++place) {
    if (!isFitted(pixel(place, 0))) {
      continue;
    }
    std::vector<std::vector<double>> const made = disturbances(place, 0);
    residual(place, 0, rest);
    for (int i = 0; i < size; ++i) {
      std::vector<double> const& own = made[static_cast<std::size_t>(i)];
      right(i) += productOf(own, rest);
      for (int j = 0; j <= i; ++j) {
        normal(i, j) += productOf(own, made[static_cast<std::size_t>(j)]);
        normal(j, i) = normal(i, j);
      }
    }
  }
  // Some disturbances look alike, such as all images brighter, which no fit shows.
  constexpr double ridge = 1e-6;
  normal += ridge * (cv::trace(normal)[0] / size + ridge) * cv::Mat_<double>::eye(size, size);
  cv::Mat_<double> shares;
  cv::solve(normal, right, shares, cv::DECOMP_CHOLESKY);
  return ratio(shared([&](std::size_t place, int which, std::vector<double>& out) {
    residual(place, which, out);
    std::vector<std::vector<double>> const made = disturbances(place, which);
    for (std::size_t i = 0; i < unknowns; ++i) {
      for (std::size_t k = 0; k < out.size(); ++k) {
        out[k] -= shares(static_cast<int>(i)) * made[i][k];
      }
    }
  }));
}

std::pair<double, double> FringeMisfit::levelAt(std::size_t place, std::size_t which) const {
  Pixel const& at = pixel(place, static_cast<int>(which));
  return {at.mean, std::hypot(at.sine, at.cosine)};
}

} // namespace vorn::mv::sl
