// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/registration/register_views.hpp>
#include <vorn/mv/surface/fuse.hpp>

#include "tools/report/page.hpp"
#include "tools/report/report.hpp"

namespace vorn::tools {

/// Prints what views became and what the surface measures, adds both to a report, and warns of views that
/// stand alone or do not lie on the others.
/// @param names of the views
/// @throws Exception when there are several views and none of them overlaps another
void reportFusion(mv::Fusion const& fusion, std::vector<std::string> const& names, Report& report);

/// Prints how views were brought together, and adds it to a report as "registration".
void reportRegistration(mv::ViewsRegistration const& found, Report& report);

/// The points with their fields, and the mesh over them, for files.
graphic::GraphicObject fusedObject(mv::Fusion const& fusion);

/// Fills a page with the surface, coloured by its sigma (or by the field "deviation", where it has one), and
/// with the views that it was made of, hidden at first, by their distance from it.
/// @param name of the part
/// @param views   as they were fused, their transforms pending
/// @param names   of the views
/// @param report  whose page it is; it has what `reportFusion` and `reportRegistration` added
void fillFusionPage(mv::Fusion const& fusion, std::string const& name,
                    std::vector<mv::PointCloud> const& views, std::vector<std::string> const& names,
                    Report& report);

} // namespace vorn::tools
