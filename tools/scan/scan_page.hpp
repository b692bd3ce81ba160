// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/report/page.hpp"

namespace vorn::tools {

/// The points of a scan for a page, with normals, texture, modulation and sigma as far as the scan made them.
/// @param triangles of the measured points in the grid's order; or none
PageCloud pageCloud(mv::ScanResult const& result, std::vector<cv::Vec3i> triangles = {});

/// Adds to a page what a scan gave beside its cloud: how much was measured and why the rest was not, devices,
/// and pictures of depth, reasons, map, modulation and sigma. It may be a scan without points.
/// @param axis what the map counts, "column" or "row"
void describeScan(Page& page, mv::ScanResult const& result, mv::Sl3dScanner const& scanner,
                  std::string const& axis);

} // namespace vorn::tools
