// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/surface/fuse.hpp>

#include "tools/report/page.hpp"
#include "tools/report/report.hpp"

namespace vorn::tools {

/// Prints what views became and what the surface measures, adds both to a report, and warns of views that
/// stand alone or do not lie on the others.
/// @param names of the views
/// @throws Exception when there are several views and none of them overlaps another
void reportFusion(mv::Fusion const& fusion, std::vector<std::string> const& names, Report& report);

/// Fills a page with the surface, coloured by its sigma.
/// @param name of the part
void fillFusionPage(mv::Fusion const& fusion, std::string const& name, Page& page);

} // namespace vorn::tools
