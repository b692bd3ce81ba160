// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "sim/scene.hpp"

namespace vorn::sim {

/// An object of one plain colour without highlights.
Object plainObject(std::string name, int label, Shape shape, Pose const& world_from_object, double albedo);

} // namespace vorn::sim
