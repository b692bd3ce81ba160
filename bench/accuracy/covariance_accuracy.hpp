// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "calib/adjustment_runs.hpp"

namespace vorn::bench {

/// What calibrations of one rig scatter by over what they predict of themselves.
struct CovarianceFigures {
  std::string name;
  test::RunSummary ratios;
};

/// Calibrates four rigs from drawn points, with fresh noise in every run.
std::vector<CovarianceFigures> compareCovariances(int runs);

} // namespace vorn::bench
