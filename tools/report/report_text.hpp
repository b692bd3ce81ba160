// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include <nlohmann/json_fwd.hpp>

namespace vorn::tools {

/// A report in the form that the tool writes now (see `Report`); one of an earlier version, which had neither
/// a schema nor the same style of names everywhere, gets both: "Times" becomes "times", and the schema's
/// version is 0.
/// @return null when it is no report
nlohmann::json asReport(nlohmann::json const& json);

/// Prints what a report says, a line for each member and for each object of a list; of longer lists the
/// number of elements.
/// @param report as `asReport` returns it
void printReport(std::ostream& out, nlohmann::json const& report);

} // namespace vorn::tools
