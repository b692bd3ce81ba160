// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/deviation_scale.hpp"

#include <algorithm>
#include <cmath>

#include "core/median.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/printed.hpp"

namespace vorn::tools {

double deviationReach(std::vector<float> const& values) {
  std::vector<float> sizes;
  for (float const value : values) {
    if (std::isfinite(value)) {
      sizes.push_back(std::abs(value));
    }
  }
  if (sizes.empty()) {
    return 1.0;
  }
  auto const largest = static_cast<double>(*std::max_element(sizes.begin(), sizes.end()));
  constexpr double sigmas = 3.0;
  constexpr double sigmaOfMedian = 1.4826; // of a normal distribution
  double const reach = sigmas * sigmaOfMedian * static_cast<double>(medianAmong(sizes));
  // Where half of the values are nought, the others are what there is to see.
  return reach > 0.0 ? std::min(reach, largest) : largest > 0.0 ? largest : 1.0;
}

std::size_t countBeyond(std::vector<float> const& values, double low, double high) {
  return static_cast<std::size_t>(std::count_if(values.begin(), values.end(), [&](float value) {
    auto const v = static_cast<double>(value);
    return v < low || v > high;
  }));
}

std::string beyondInWords(std::size_t beyond, std::size_t count) {
  if (beyond == 0) {
    return "";
  }
  double const percent = 100.0 * static_cast<double>(beyond) / static_cast<double>(count);
  constexpr double least = 0.05; // what is shown as 0.0 % else
  return percent < least ? countText(beyond) + " lie beyond" : printed("%.1f %% lie beyond", percent);
}

} // namespace vorn::tools
