// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include <vorn/mv/calib/laser_line.hpp>

namespace vorn::mv {

/// A column or row of an 8-bit image: `count` grey levels, `step` bytes apart.
struct Profile {
  unsigned char const* first;
  std::ptrdiff_t step;
  int count;

  int operator[](int i) const { return first[i * step]; }
};

/// Where a stripe stands in a profile.
struct ProfilePeak {
  double place;
  double contrast;
  double width;
  /// How much of the third and the fifth Hermite function is in the profile besides the Gaussian: grey levels
  /// as a unit of white noise. Both are 0 for a symmetric stripe.
  std::array<double, 2> odd;
};

/// Measures the stripe whose highest point lies near pixel `top`; nothing when it fails a test of the options
/// or is cut by the profile's end.
std::optional<ProfilePeak> measurePeak(Profile const& profile, int top, LaserLineOptions const& options);

} // namespace vorn::mv
