// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::tools {

/// The figures of a calibration as a table.
std::string table(mv::Calibration const& calibration);

/// Whether a finding is why its view was left out.
bool isLeftOut(mv::Finding const& finding, mv::Calibration const& calibration);

} // namespace vorn::tools
