// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include <sim/rig.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/report/report.hpp"

namespace vorn::tools {

/// Scans a part from several sides with a rig, finds where the views lie from what a turntable says, fuses
/// them and compares the surface with the part's true shape. Writes part.ply, part.png and the views into a
/// folder.
void demonstratePart(sim::Rig const& rig, mv::Sl3dScanner& scanner, std::filesystem::path const& folder,
                     Report& report);

} // namespace vorn::tools
