// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <vorn/mv/scanner/calibrate_rig.hpp>

namespace vorn::tools {

/// What became of all views of two cameras and a projector, and how well the three fit together, as text.
std::string table(mv::RigCalibration const& rig);

/// The same for a report: the first camera with the projector as of a scanner, and beside it "second", "pair"
/// and "closure".
nlohmann::json toJson(mv::RigCalibration const& rig);

} // namespace vorn::tools
