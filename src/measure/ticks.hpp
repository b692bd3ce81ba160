// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::mv {

/// Round numbers along an axis.
struct Ticks {
  std::vector<double> values;
  std::vector<std::string> labels;
};

/// The multiples of 1, 2 or 5 times a power of ten within [low, high]: as many as possible, at most `most`.
/// @param low below `high`, both finite
Ticks ticksOf(double low, double high, int most);

/// Names at 0, 1, 2 ..., as far as they lie in [low, high]: every one, or every second, third ..., as few as
/// leave no more than `most`.
/// @param most 1 or more
Ticks namedTicks(std::vector<std::string> const& names, double low, double high, int most);

/// A number without needless digits: at most six that count.
std::string shortNumber(double value);

} // namespace vorn::mv
