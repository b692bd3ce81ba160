// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/measure/amat.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "tools/files/view_names.hpp"

namespace vorn::tools {

/// Writes the photographs of a calibration's views, with the dots that were used, their errors enlarged, and
/// the points of laser lines: pose_00_target.png, pose_00_target_1.png, pose_00_line_00.png and so on, and
/// next_view.png where the calibration says where to hold the target next. Of a
/// view that was left out the photograph says why. Pictures that cannot be read are passed over: the
/// calibration has said so.
/// @param folder    where the views were read from
/// @param overlays  where the pictures go; made if need be
/// @param pitch     of the target, mm
/// @param names     of the photographs, where they have others
/// @return how many pictures were written
int writeViewOverlays(std::string const& folder, std::string const& overlays,
                      mv::Calibration const& calibration, double pitch, mv::DrawSettings const& settings,
                      ViewNames const& names = {});

} // namespace vorn::tools
