// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::bench {

/// How registrations of two noisy scans of one surface scatter, over what they foretell.
struct ScatterFigures {
  std::string name;
  int runs = 0;
  double joint = 0.0; ///< RMS of all six together, 1 for an honest covariance
  double axes[6] = {};
  double bias[6] = {}; ///< mean error in standard deviations of one run
};

/// Registers `runs` pairs of each of several surfaces, on grids and lists, with fresh noise in each.
std::vector<ScatterFigures> compareRegistrations(int runs);

/// How often registration ends at the truth.
struct BasinFigures {
  std::string start; ///< how far from the truth it begins, or "search"
  double overlap = 0.0;
  int runs = 0;
  int right = 0;
  int flagged = 0;               ///< of the wrong ones, those that are doubted, not held or not found
  std::vector<std::string> lost; ///< the parts of the wrong ones
};

/// Which pairs of views are registered.
struct BasinSettings {
  std::size_t parts = 10;
  int views = 1; ///< pairs of each part and overlap
  std::vector<double> overlaps;
  bool isSearching = true; ///< from no start too
};

/// Registers views of parts that have so much in common, from starts of several errors: pairs drawn until
/// what both see is held by its shape.
std::vector<BasinFigures> basins(BasinSettings const& settings);

/// @return whether the covariances hold to 35 % jointly: no better where views share half of what they see
bool printRegistrations(int runs);

/// One table of success rates.
void printBasins(std::vector<BasinFigures> const& all);

} // namespace vorn::bench
