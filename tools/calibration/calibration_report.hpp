// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::tools {

/// The figures of a calibration as a table.
std::string table(mv::Calibration const& calibration);

/// A picture of the reprojection errors over the devices' images, much enlarged, one colour a view.
cv::Mat plotResiduals(mv::Calibration const& calibration);

} // namespace vorn::tools
