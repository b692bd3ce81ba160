// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::tools {

/// Prints how many points and triangles there are, what they carry, their box, usual spacing and fields.
/// @return the same as members of a report
nlohmann::json printCloudInfo(graphic::GraphicObject const& object);

} // namespace vorn::tools
