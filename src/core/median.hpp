// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace vorn {

/// The value that has `rank` values before it in rising order; reorders the values.
/// @param values at least rank + 1
template <class Value>
Value rankedAmong(std::vector<Value>& values, std::size_t rank) {
  auto const nth = values.begin() + static_cast<std::ptrdiff_t>(rank);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

/// As `medianOf`, in place: reorders the values.
template <class Value>
Value medianAmong(std::vector<Value>& values) {
  return values.empty() ? Value() : rankedAmong(values, values.size() / 2);
}

/// The median, of an even number of values the upper one of the middle two; 0 for none.
template <class Value>
Value medianOf(std::vector<Value> values) {
  return medianAmong(values);
}

} // namespace vorn
