// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/plain_object.hpp"

#include <utility>

namespace vorn::sim {

Object plainObject(std::string name, int label, Shape shape, Pose const& world_from_object, double albedo) {
  Object result;
  result.name = std::move(name);
  result.label = label;
  result.shape = std::move(shape);
  result.world_from_object = world_from_object;
  result.material.albedo = albedo;
  return result;
}

} // namespace vorn::sim
