// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include <vorn/core/property_set.hpp>

namespace vorn::tools {

/// Prints the class name, then a line for each property: name, type, default, and range or items.
void printProperties(std::ostream& out, IPropertySet const& object);

} // namespace vorn::tools
