// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "scan_accuracy.hpp"

namespace vorn::bench {

struct CalibrationFigures {
  std::string name;
  int views = 0;          ///< used
  double cameraError = 0; ///< reprojection, pixels
  double projectorError = 0;
  double cameraModel = 0; ///< rms difference to the true model over the whole image, pixels
  double projectorModel = 0;
  ScanFigures scan; ///< with this calibration
  ScanFigures scanWithTruth;
};

/// Renders the demonstration's target views, calibrates from their files, and scans with the result; beside
/// it what a scan with the true calibration gave.
CalibrationFigures calibrate(ScanCase const& given, ScanFigures const& scanWithTruth);

} // namespace vorn::bench
