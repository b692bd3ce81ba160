// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace vorn::mv {

/// In which order seeds are added: any, or by rising index, which lets many of them be sorted faster.
enum class SeedOrder { Any, ByIndex };

/// Hands out pixels by falling quality, equal qualities by rising index, a quality of NaN last.
///
/// Most pixels are known before growth starts. Sorted once they cost a fifth of what a heap would take for
/// them; only those that come later go through a heap. Seeds may come in parts, each after the one before it
/// has had its turn, if no seed of a part has its turn before one of an earlier part.
class GrowthQueue {
public:
  void clear();
  void clearSeeds();

  /// Takes a pixel before growth starts.
  void addSeed(float quality, std::uint32_t index) { seeds_.push_back(keyOf(quality, index)); }
  /// After the last seed.
  void sortSeeds(SeedOrder added = SeedOrder::ByIndex);

  void push(float quality, std::uint32_t index);

  bool empty() const { return !hasSeeds() && later_.empty(); }
  /// Whether a seed has not had its turn.
  bool hasSeeds() const { return next_ < seeds_.size(); }
  /// Takes out the pixel whose turn it is.
  std::uint32_t pop();

  /// The larger key has its turn first; the upper half is the quality's.
  static std::uint64_t keyOf(float quality, std::uint32_t index);

private:
  std::vector<std::uint64_t> seeds_;  ///< sorted, the largest first
  std::size_t next_ = 0;              ///< the first seed that has not had its turn
  std::vector<std::uint64_t> later_;  ///< a heap
  std::vector<std::uint64_t> sorted_; ///< of the sorting passes
};

} // namespace vorn::mv
