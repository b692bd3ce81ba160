// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Marks an object's fields in files. Some programs show only numbers under such names, and it keeps a field
/// with the name of a coordinate apart from the coordinate.
constexpr std::string_view fieldPrefix = "scalar_";

/// The names of the object's fields as a file may hold them, in their order: with underscores for blanks and
/// control characters, without the prefix.
/// @throws Exception for an empty name and for two that are the same then
std::vector<std::string> fileFieldNames(GraphicObject const& object);

/// The names of the fields that numbers under the given names in a file become: without the prefix, unless
/// another of them is called so.
std::vector<std::string> fieldNamesOf(std::vector<std::string> const& names);

} // namespace vorn::graphic
