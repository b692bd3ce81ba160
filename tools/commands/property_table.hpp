// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include <nlohmann/json.hpp>

#include <vorn/core/property_set.hpp>

namespace vorn::tools {

/// Prints the class name, then a line for each property: name, type, default, and range or items.
/// @return by name "type", "default" and "allowed", the texts that are printed
nlohmann::json printProperties(std::ostream& out, IPropertySet const& object);

} // namespace vorn::tools
