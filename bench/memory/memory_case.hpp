// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <type_traits>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>

#include "allocations.hpp"

namespace vorn::bench {

/// How large the inputs are.
struct Sizes {
  cv::Size image;
  int cloudSide; ///< clouds have cloudSide x cloudSide points
};

/// An operation whose memory is measured.
struct MemoryCase {
  std::string name; ///< as docs/memory.md has it
  /// Runs it and returns the bytes that it takes beyond input and result, per pixel or point.
  std::function<double(Sizes const&)> measure;
};

/// What every operation may take besides, whatever the size of its input: read and write buffers, tables.
constexpr std::size_t fixedBytes = std::size_t{1} << 19;

inline std::size_t bytesOf(cv::Mat const& matrix) {
  return matrix.total() * matrix.elemSize();
}
template <class T>
std::size_t bytesOf(std::vector<T> const& values) {
  return values.size() * sizeof(T);
}
inline std::size_t bytesOf(graphic::GraphicObject const& object) {
  return bytesOf(object.vertices()) + bytesOf(object.normals()) + bytesOf(object.colors()) +
         bytesOf(object.triangles());
}

/// The most bytes an item that `work` takes at once beyond what it returns, without the fixed part.
template <class Work>
double workingBytes(std::size_t items, Work const& work) {
  std::size_t const before = allocatedBytes();
  resetPeak();
  std::size_t result = 0;
  if constexpr (std::is_void_v<decltype(work())>) {
    work();
  } else {
    result = bytesOf(work());
  }
  std::size_t const highest = peakBytes() - before;
  std::size_t const expected = result + fixedBytes;
  return highest <= expected ? 0 : static_cast<double>(highest - expected) / static_cast<double>(items);
}

std::vector<MemoryCase> scanCases();
std::vector<MemoryCase> calibrationCases();
std::vector<MemoryCase> imageCases();
std::vector<MemoryCase> cloudCases();
std::vector<MemoryCase> registrationCases();
std::vector<MemoryCase> fileCases();
std::vector<MemoryCase> jobCases();

} // namespace vorn::bench
