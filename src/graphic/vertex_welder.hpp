// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core/matx.hpp>
#include <vector>

namespace vorn::graphic {

/// Turns triangles of loose corners into indexed ones: corners with the same bits become one vertex, numbered
/// by first use. (So 0 and -0 differ, and a NaN equals itself.)
class VertexWelder {
public:
  using Corners = std::array<cv::Vec3f, 3>;

  /// @param vertices  where the vertices go; empty at first
  /// @param triangles where the triangles go
  VertexWelder(std::vector<cv::Vec3f>& vertices, std::vector<cv::Vec3i>& triangles);

  /// Makes room for a number of triangles of an ordinary mesh, which has about half as many vertices.
  void reserve(std::size_t triangleCount);

  /// Adds `count` triangles; the corners of triangle i are the 36 bytes from `corners + i * stride` on.
  void add(char const* corners, std::size_t stride, std::size_t count);

private:
  /// A vertex in the hash table. The hash's upper half tells most others apart without a look at the vertex.
  struct Slot {
    std::uint32_t tag;
    std::int32_t vertex; ///< negative in an empty slot
  };

  void rehash(std::size_t slotCount);
  std::int32_t find(cv::Vec3f const& corner, std::uint64_t hash);

  std::vector<cv::Vec3f>& vertices_;
  std::vector<cv::Vec3i>& triangles_;
  std::vector<Slot> slots_; ///< a power of two; open addressing with linear probing
};

} // namespace vorn::graphic
