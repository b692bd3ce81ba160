// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/core/export.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

class Sl3dScanner;
struct ScanResult;

/// The names that `addScanFields` knows.
[[nodiscard]] VORN_API std::vector<std::string> const& scanFieldNames();

/// Puts numbers with the points of a scan's cloud, as `PointCloud::fields`, which PLY files keep and viewers
/// show as scalar fields. Where there is no point they are NaN.
///
/// | name                | what it is                                                                      |
/// |---------------------|---------------------------------------------------------------------------------|
/// | "modulation"        | fringe amplitude, grey levels                                                   |
/// | "sigma"             | one standard deviation of the point along its ray from the images' noise, mm    |
/// | "sigma_calibration" | root of the summed variances of its place from the calibration's error, which
/// neighbouring points share: see `PointUncertainty`, mm |
///
/// Working memory: none beside the fields, 4 bytes a pixel each.
/// @param result  of this scanner, with the `modulation` or `sigma` that a field is made of
/// @param scanner as it was for the scan, with a covariance for "sigma_calibration"
/// @throws Exception for a name that is none, a result that lacks what a field is made of, and a scanner
///         without a covariance; the result is as it was then
/// @throws Cancelled when the observer stops it
VORN_API void addScanFields(ScanResult& result, Sl3dScanner const& scanner,
                            std::vector<std::string> const& names, Observer* observer = nullptr);

} // namespace vorn::mv
