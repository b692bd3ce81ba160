// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_laser.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include "tools/report/page.hpp"

namespace vorn::tools {

/// Adds to a page what a calibration found out: how good it is, which views were left out and why, the
/// devices with their figures, the target as it stood in every view with the errors of its dots, and the
/// plots of the errors.
void describeCalibration(Page& page, mv::CameraCalibration const& calibration);
void describeCalibration(Page& page, mv::ScannerCalibration const& calibration);
void describeCalibration(Page& page, mv::StereoCalibration const& calibration);
/// The same with the laser planes and the points of their lines.
void describeCalibration(Page& page, mv::LaserCalibration const& calibration);

/// The plots of the errors alone, one for each device.
void addErrorPlots(Page& page, mv::Calibration const& calibration);

} // namespace vorn::tools
