// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <vorn/mv/calib/adjustment.hpp>

#include "calib/adjust/bundle.hpp"

namespace vorn::mv {

/// Views, their adjustment and its bundle again: what a diagnosis looks at, and how its texts call the parts.
/// Views and adjustment must outlive it.
struct SolvedViews {
  std::vector<AdjustmentView> const& views;
  Adjustment const& adjustment;
  Bundle bundle;

  /// @throws Exception where the views are not those that were adjusted
  SolvedViews(std::vector<AdjustmentView> const& givenViews, Adjustment const& givenAdjustment);

  int deviceCount() const { return static_cast<int>(adjustment.models.size()); }
  /// Whether the adjustment changed a device's lens.
  bool isFree(int device) const {
    return !bundle.devices[static_cast<std::size_t>(device)].freeParameters.empty();
  }
  /// "the camera", "the projector", "camera 1"
  std::string deviceName(int device) const;
  /// A view's name, or its number where it has none.
  std::string viewName(std::size_t view) const;
};

/// Residuals that exceed the noise by more are not chance.
constexpr double mostChanceS0 = 1.3;

/// Views of which one may be told from the others.
constexpr std::size_t fewestViewsToTell = 4;

/// A number with so many digits after the point.
std::string rounded(double value, int digits);

} // namespace vorn::mv
