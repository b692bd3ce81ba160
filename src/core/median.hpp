// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace vorn {

/// The median, of an even number of values the upper one of the middle two; 0 for none.
inline double medianOf(std::vector<double> values) {
  if (values.empty()) {
    return 0;
  }
  auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

} // namespace vorn
