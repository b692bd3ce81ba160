// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "sl/patterns/fringe_sums.hpp"
#include "sl/patterns/kept_samples.hpp"

namespace vorn::mv::sl {

/// Which image's samples are taken for each image of the set.
using Assignment = std::vector<std::size_t>;

/// What neighbours have in common: a sum of products, and what chance makes of it.
struct SharedPower {
  double sum = 0.0;
  double squares = 0.0; ///< of the products

  void add(double product) {
    sum += product;
    squares += product * product;
  }
  /// The sum where it is more than chance makes, else 0.
  double beyondChance() const {
    constexpr double deviations = 4.0;
    return sum > deviations * std::sqrt(squares) ? sum : 0.0;
  }
};

/// Of a place and the one to its right, and of the one below.
struct Shared {
  SharedPower right, below;
};

/// The fit of one fringe's steps at the kept places.
class FringeMisfit {
public:
  FringeMisfit(FringeDesign const& design, KeptSamples const& samples) : design_(design), samples_(samples) {}

  /// Fits all places.
  /// @param leftOut bit k: step k does not take part
  void fit(Assignment const& assignment, std::uint32_t leftOut = 0);

  /// Share of the swing that the fit leaves, of what neighbours have in common; NaN when there are too few
  /// places or steps.
  double raw() const;
  /// The same without what a factor for each image and harmonics of one share everywhere explain.
  double explained() const;

  /// Mean level and amplitude of a pixel; NaN where they are not determined.
  std::pair<double, double> levelAt(std::size_t place, std::size_t which) const;

private:
  struct Pixel {
    std::uint32_t lost;
    double mean, sine, cosine; ///< see `FringeEquations`
  };
  Pixel const& pixel(std::size_t place, int which) const {
    return pixels_[place * KeptSamples::ofPlace + static_cast<std::size_t>(which)];
  }
  FringeEquations::Inverse const& inverse(std::uint32_t lost) const;
  bool isFitted(Pixel const& at) const;
  void swingOf(std::size_t place, int which, std::vector<double>& out) const;
  void residual(std::size_t place, int which, std::vector<double>& out) const;
  void projectOut(std::uint32_t lost, std::vector<double>& values) const;
  std::vector<std::vector<double>> disturbances(std::size_t place, int which) const;
  template <class Of>
  Shared shared(Of const& of) const;
  double ratio(Shared const& rest) const;

  FringeDesign const& design_;
  KeptSamples const& samples_;
  Assignment images_; ///< of the fringe's steps
  std::vector<Pixel> pixels_;
  Shared swings_;
  std::size_t fitted_ = 0; ///< places
  mutable std::vector<std::pair<std::uint32_t, FringeEquations::Inverse>> inverses_;
};

} // namespace vorn::mv::sl
