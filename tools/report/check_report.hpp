// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <vorn/mv/scanner/check_scan.hpp>

#include "tools/report/page.hpp"

/// What a check of a calibration found, in its forms.
namespace vorn::tools {

nlohmann::json asJson(mv::ScanCheck const& check);

/// In one sentence, for people.
std::string sentence(mv::ScanCheck const& check);

/// By which turn of the projector a drift would be explained, and whether it is.
std::string turnSentence(mv::ScanCheck const& check);

/// @param name of the scan
void fillCheckPage(mv::ScanCheck const& check, std::string const& name, Page& page);

} // namespace vorn::tools
