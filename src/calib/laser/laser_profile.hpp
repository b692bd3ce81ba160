// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <vorn/mv/calib/laser_line.hpp>

namespace vorn::mv {

/// A column or row of an image: `count` pixels, `step` pixels of 8 or 16 bits apart.
struct LaserProfile {
  unsigned char const* first;
  std::ptrdiff_t step;
  int count;
  std::uint16_t const* words = nullptr; ///< in place of `first` in 16 bits
  double perGrey = 1.0;                 ///< levels of a pixel in one grey level of 8 bits

  /// Grey levels of 8 bits.
  double operator[](int i) const { return words != nullptr ? words[i * step] / perGrey : first[i * step]; }
};

/// Neighbouring pixels of a profile that are as bright as it gets.
struct FullRun {
  int first;
  int end;
};

/// Where a stripe stands in a profile.
struct ProfilePeak {
  double place;
  double contrast;
  double width;
  /// How much of the third and the fifth Hermite function is in the profile besides the Gaussian: grey levels
  /// as a unit of white noise. Both are 0 for a symmetric stripe.
  std::array<double, 2> odd;
  /// Standard deviation of the place that noise of one grey level gives, pixels; of an overexposed stripe
  /// with what its flanks disagree by.
  double sigma = 0;
  bool isOverexposed = false; ///< measured by its flanks
};

/// Measures the stripe whose highest point lies near pixel `top`; nothing when it fails a test of the options
/// or is cut by the profile's end.
std::optional<ProfilePeak> measurePeak(LaserProfile const& profile, int top, LaserLineOptions const& options);

/// What the flanks of full pixels tell.
struct Flanks {
  double contrast = 0; ///< height of the full pixels above the background
  /// Nothing where they are no stripe, or the two do not agree on the middle.
  std::optional<ProfilePeak> peak;
};

/// Measures an overexposed stripe, whose middle is full: the middle between where its two flanks pass the
/// same levels.
Flanks measureFlanks(LaserProfile const& profile, FullRun const& full, LaserLineOptions const& options);

} // namespace vorn::mv
