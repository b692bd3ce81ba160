// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace vorn::mv {

/// Hands out pixels by falling quality, equal qualities by rising index, a quality of NaN last.
///
/// Most pixels are known before growth starts. Sorted once they cost a fifth of what a heap would take for
/// them; only those that come later go through a heap.
class GrowthQueue {
public:
  void clear();

  /// Takes a pixel before growth starts; in the order of their indices.
  void addSeed(float quality, std::uint32_t index) { seeds_.push_back(keyOf(quality, index)); }
  /// After the last seed.
  void sortSeeds();

  void push(float quality, std::uint32_t index);

  bool empty() const { return next_ == seeds_.size() && later_.empty(); }
  /// Takes out the pixel whose turn it is.
  std::uint32_t pop();

private:
  /// The larger key has its turn first.
  static std::uint64_t keyOf(float quality, std::uint32_t index);

  std::vector<std::uint64_t> seeds_;  ///< sorted, the largest first
  std::size_t next_ = 0;              ///< the first seed that has not had its turn
  std::vector<std::uint64_t> later_;  ///< a heap
  std::vector<std::uint64_t> sorted_; ///< of the sorting passes
};

} // namespace vorn::mv
