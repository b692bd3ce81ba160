// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::test {

/// Random vertices of all magnitudes, among them the values that text and conversions get wrong first.
inline std::vector<cv::Vec3f> hardVectors(int count) {
  using Limits = std::numeric_limits<float>;
  constexpr std::array<float, 12> hardValues = {
      0.0F, -0.0F,       Limits::min(),      Limits::denorm_min(), Limits::max(), Limits::lowest(),
      0.1F, 16777216.0F, Limits::infinity(), -Limits::infinity(),  1e-7F,         Limits::quiet_NaN()};
  std::vector<cv::Vec3f> vectors;
  for (int i = 0; i < count; ++i) {
    cv::Vec3f vector;
    for (int axis = 0; axis < 3; ++axis) {
      vector[axis] = i % 7 == 0 ? hardValues[static_cast<std::size_t>(cv::theRNG().uniform(0, 12))]
                                : cv::theRNG().uniform(-1.0F, 1.0F) *
                                      static_cast<float>(std::pow(10.0, cv::theRNG().uniform(-6, 6)));
    }
    vectors.push_back(vector);
  }
  return vectors;
}

enum class Alpha { Opaque, Varied };

/// A mesh with everything that a file can hold.
inline graphic::GraphicObject fullObject(int vertexCount, Alpha alpha) {
  graphic::GraphicObject object;
  object.vertices() = hardVectors(vertexCount);
  object.normals() = hardVectors(vertexCount);
  for (int vertex = 0; vertex < vertexCount; ++vertex) {
    auto const any = [] { return cv::saturate_cast<uchar>(cv::theRNG().uniform(0, 256)); };
    object.colors().emplace_back(any(), any(), any(), alpha == Alpha::Opaque ? uchar{255} : any());
  }
  for (int vertex = 2; vertex < vertexCount; ++vertex) {
    object.triangles().emplace_back(vertex, vertex - 2, cv::theRNG().uniform(0, vertexCount));
  }
  return object;
}

template <class T>
void expectSameBits(std::vector<T> const& actual, std::vector<T> const& expected, char const* name) {
  ASSERT_EQ(actual.size(), expected.size()) << name;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    ASSERT_EQ(std::memcmp(actual[i].val, expected[i].val, sizeof(T)), 0)
        << name << " " << i << ": " << actual[i] << " instead of " << expected[i];
  }
}

inline void expectSameBits(graphic::GraphicObject const& actual, graphic::GraphicObject const& expected) {
  expectSameBits(actual.vertices(), expected.vertices(), "vertices");
  expectSameBits(actual.normals(), expected.normals(), "normals");
  expectSameBits(actual.colors(), expected.colors(), "colors");
  expectSameBits(actual.triangles(), expected.triangles(), "triangles");
}

} // namespace vorn::test
