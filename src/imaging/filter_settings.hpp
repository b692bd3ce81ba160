// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>

#include <vorn/core/property_set.hpp>

namespace vorn::mv {

inline int intOf(IPropertySet const& filter, char const* name) {
  return filter[name].getValue().toInt();
}

inline double doubleOf(IPropertySet const& filter, char const* name) {
  return filter[name].getValue().toDouble();
}

inline bool boolOf(IPropertySet const& filter, char const* name) {
  return filter[name].getValue().toBool();
}

/// The square of 2 * Radius + 1 pixels a side that most filters look at.
inline cv::Size kernelSize(IPropertySet const& filter) {
  int const side = 2 * intOf(filter, "Radius") + 1;
  return {side, side};
}

} // namespace vorn::mv
