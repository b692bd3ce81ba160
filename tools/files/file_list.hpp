// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::tools {

/// Whether one name stands before another as people count: "view_9.png" before "view_10.png".
bool comesBefore(std::string const& a, std::string const& b);

/// Whether a name matches a pattern of the shell's kind: `*`, `?`, and `[a-z]` or `[!a-z]`.
bool matches(std::string const& name, std::string const& pattern);

/// The files that a command's arguments name: an argument that is there is itself; in others patterns, which
/// may stand in any part of the path, are replaced by what matches them, in the order of `comesBefore`. Names
/// that begin with a full stop match only patterns that do. What has no pattern is kept, there or not.
/// @throws Exception when nothing matches a pattern
std::vector<std::string> expandFiles(std::vector<std::string> const& arguments);

} // namespace vorn::tools
