// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/vertex_welder.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "core/bits.hpp"
#include "core/error.hpp"
#include "core/large_array.hpp"

namespace vorn::graphic {
namespace {

constexpr std::size_t batchSize = 32; // triangles whose table slots are fetched from memory at the same time
constexpr std::size_t leastSlots = 1024;

std::array<std::uint32_t, 3> bitsOf(cv::Vec3f const& corner) {
  std::array<std::uint32_t, 3> bits = {};
  std::memcpy(bits.data(), corner.val, sizeof bits);
  return bits;
}

std::uint64_t hashOf(cv::Vec3f const& corner) {
  std::array<std::uint32_t, 3> const bits = bitsOf(corner);
  std::uint64_t hash = (std::uint64_t{bits[1]} << 32 | bits[0]) * 0x9e3779b97f4a7c15U;
  hash = (hash ^ (hash >> 32) ^ bits[2]) * 0xd6e8feb86659fd93U;
  return hash ^ (hash >> 32);
}

std::uint32_t tagOf(std::uint64_t hash) {
  return static_cast<std::uint32_t>(hash >> 32);
}

} // namespace

VertexWelder::VertexWelder(std::vector<cv::Vec3f>& vertices, std::vector<cv::Vec3i>& triangles)
    : vertices_(vertices), triangles_(triangles) {
  rehash(leastSlots);
}

void VertexWelder::reserve(std::size_t triangleCount) {
  reserveLarge(triangles_, triangleCount);
  reserveLarge(vertices_,
               triangleCount / 2 + triangleCount / 16); // inside a mesh half as many, more at borders
  std::size_t slotCount = leastSlots;
  while (slotCount < triangleCount) {
    slotCount *= 2;
  }
  rehash(slotCount);
}

void VertexWelder::rehash(std::size_t slotCount) {
  std::vector<Slot> fresh;
  reserveLarge(fresh, slotCount);
  fresh.assign(slotCount, Slot{0, -1});
  slots_ = std::move(fresh);
  for (std::size_t vertex = 0; vertex < vertices_.size(); ++vertex) {
    std::uint64_t const hash = hashOf(vertices_[vertex]);
    std::size_t place = hash & (slotCount - 1);
    while (slots_[place].vertex >= 0) {
      place = (place + 1) & (slotCount - 1);
    }
    slots_[place] = {tagOf(hash), static_cast<std::int32_t>(vertex)};
  }
}

std::int32_t VertexWelder::find(cv::Vec3f const& corner, std::uint64_t hash) {
  std::size_t const mask = slots_.size() - 1;
  std::size_t place = hash & mask;
  for (; slots_[place].vertex >= 0; place = (place + 1) & mask) {
    Slot const slot = slots_[place];
    if (slot.tag == tagOf(hash) &&
        bitsOf(vertices_[static_cast<std::size_t>(slot.vertex)]) == bitsOf(corner)) {
      return slot.vertex;
    }
  }
  if (vertices_.size() == static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw error("More vertices than an index can count", "STLFile");
  }
  slots_[place] = {tagOf(hash), static_cast<std::int32_t>(vertices_.size())};
  vertices_.push_back(corner);
  return slots_[place].vertex;
}

void VertexWelder::add(char const* corners, std::size_t stride, std::size_t count) {
  std::array<Corners, batchSize> batch;
  std::array<std::array<std::uint64_t, 3>, batchSize> hashes = {};
  while (count > 0) {
    std::size_t const taken = std::min(count, batchSize);
    constexpr std::size_t slotsPerVertex = 2;
    if (slotsPerVertex * (vertices_.size() + 3 * taken) > slots_.size()) {
      rehash(2 * slots_.size());
    }
    for (std::size_t triangle = 0; triangle < taken; ++triangle, corners += stride) {
      std::memcpy(batch[triangle][0].val, corners, sizeof batch[triangle]);
      for (std::size_t corner = 0; corner < 3; ++corner) {
        hashes[triangle][corner] = hashOf(batch[triangle][corner]);
        prefetch(&slots_[hashes[triangle][corner] & (slots_.size() - 1)]);
      }
    }
    for (std::size_t triangle = 0; triangle < taken; ++triangle) {
      cv::Vec3i indices;
      for (int corner = 0; corner < 3; ++corner) {
        std::size_t const place = static_cast<std::size_t>(corner);
        indices[corner] = find(batch[triangle][place], hashes[triangle][place]);
      }
      triangles_.push_back(indices);
    }
    count -= taken;
  }
}

} // namespace vorn::graphic
