// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::tools {

/// "columns" or "rows": which sequence of images the scanner decodes, by its "ScannerType".
std::string sequencePrefix(mv::Sl3dScanner const& scanner);

/// Why pixels have no point, in words: "90 dark, 10 noCode", the most frequent reasons first.
std::string reasonText(mv::ScanCounts const& counts);

/// The same as an object: how many pixels of every reason.
nlohmann::json notMeasuredReport(mv::ScanCounts const& counts);

/// Where the points of a cloud lie: "origin" and "size", mm.
nlohmann::json boxReport(mv::PointCloud const& cloud);

/// The figures of a scan: counts, times, box.
nlohmann::json scanReport(mv::ScanResult const& result);

} // namespace vorn::tools
