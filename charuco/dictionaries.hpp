// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/aruco.hpp>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::mv {

/// The dictionary of a board's markers.
/// @throws Exception for a name that is none, or when the board has more markers than the dictionary
cv::Ptr<cv::aruco::Dictionary> dictionaryOf(TargetDescription const& target);

} // namespace vorn::mv
