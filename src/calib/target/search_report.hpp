// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>
#include <string>
#include <vector>

namespace vorn::mv {

/// What a search for a target came by, for those who want to know why it found nothing.
struct SearchReport {
  /// How many candidates were left after a step of the reading that was followed to its end.
  struct Step {
    std::string name;
    int count;
  };
  /// A dot that a step took out.
  struct Dropped {
    cv::Point2d centre;
    std::string reason;
  };
  std::vector<Step> steps;
  std::vector<Dropped> dropped;
  /// The candidates that are in no grid, a thousand at most for each reason; of use where nothing was found.
  std::vector<Dropped> loose;
};

} // namespace vorn::mv
