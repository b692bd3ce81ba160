// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/measure/amat.hpp>
#include <vorn/mv/scanner/calibration.hpp>
#include <vorn/mv/scanner/next_view.hpp>

namespace vorn::tools {

/// Where to hold the target, in words: "the middle of the target 524 mm away, at ...".
std::string placeText(mv::NextView const& next);

/// What one more view would change, and where to hold the target for it; one sentence.
std::string nextViewText(mv::NextView const& next);

/// Where to hold the target: its dots and outline as the camera will see them, with the outlines of the views
/// that there are.
/// @param calibration with an adjustment and a next view
/// @param camera      its first device
mv::AMat nextViewPicture(mv::Calibration const& calibration, mv::CameraModel const& camera);

} // namespace vorn::tools
