// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/graphic_object.hpp>

#include <string>

#include "core/error.hpp"

namespace vorn::graphic {
namespace {

constexpr char const* context = "GraphicObject";

void assertOneEach(std::size_t count, std::size_t vertexCount, std::string const& name) {
  if (count != vertexCount) {
    throw error(std::to_string(count) + " " + name + " for " + std::to_string(vertexCount) + " vertices",
                context);
  }
}

} // namespace

void GraphicObject::assertValid() const {
  if (hasNormals()) {
    assertOneEach(normals_.size(), vertices_.size(), "normals");
  }
  if (hasColors()) {
    assertOneEach(colors_.size(), vertices_.size(), "colors");
  }
  for (auto const& [name, values] : fields_) {
    assertOneEach(values.size(), vertices_.size(), "values of the field " + name);
  }
  for (std::size_t triangle = 0; triangle < triangles_.size(); ++triangle) {
    for (int const index : triangles_[triangle].val) {
      if (index < 0 || static_cast<std::size_t>(index) >= vertices_.size()) {
        throw error("Triangle " + std::to_string(triangle) + " has the vertex index " +
                        std::to_string(index) + ", but there are " + std::to_string(vertices_.size()) +
                        " vertices",
                    context);
      }
    }
  }
}

} // namespace vorn::graphic
