// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <vorn/mv/sl/plan_patterns.hpp>

#include "tools/report/report.hpp"

namespace vorn::tools {

/// What `patterns --plan` takes.
struct PlanOptions {
  bool isWanted = false;
  mv::PatternWish wish; ///< but for the projector and the axes
  std::string light;    ///< a report of `exposure`, from which noise, amplitude and blur come

  void addTo(CLI::App& command);
};

/// The sets that fulfil the options' wish, shown as a table and noted in the report.
/// @throws Exception when there are none
std::vector<mv::PatternPlan> showPlans(PlanOptions const& options, cv::Size const& projector,
                                       mv::PatternAxes axes, Report& report);

} // namespace vorn::tools
