// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::tools {

/// Makes targets of the description's kind findable: for ChArUco boards loads the library that finds them,
/// which is installed apart.
/// @throws Exception when the kind takes a library that is not installed; names its package
void prepareFor(mv::TargetDescription const& target);

/// The description in a file, `prepareFor` done.
/// @throws Exception as `load` and `prepareFor`
mv::TargetDescription readTarget(std::string const& path);

} // namespace vorn::tools
