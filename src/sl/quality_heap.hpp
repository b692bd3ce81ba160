// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace vorn::mv {

/// The waiting pixels of phase unwrapping, the one of highest quality on top.
///
/// A binary heap that takes equal qualities in the order of `std::push_heap` and `std::pop_heap` with "less
/// quality": a new entry rises past parents of strictly smaller quality; on a pop the larger child moves up
/// all the way (of equal ones the second) and the last entry rises from the gap that is left.
class QualityHeap {
public:
  struct Entry {
    float quality;
    std::uint32_t pixel; ///< row * columns + column
  };

  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  void clear() { entries_.clear(); }
  Entry const& operator[](std::size_t i) const { return entries_[i]; }

  void push(Entry entry) {
    entries_.push_back(entry);
    rise(entries_.size() - 1, entry);
  }

  /// Removes the top entry and returns it.
  Entry pop() {
    Entry const top = entries_.front();
    Entry const last = entries_.back();
    entries_.pop_back();
    if (!entries_.empty()) {
      rise(openGap(), last);
    }
    return top;
  }

private:
  /// Moves the larger child up from the top to the bottom; returns the place that becomes free.
  std::size_t openGap() {
    std::size_t const size = entries_.size();
    Entry* const entries = entries_.data();
    std::size_t gap = 0;
    std::size_t second = 2;
    while (second < size) {
      std::size_t const larger = second - (entries[second].quality < entries[second - 1].quality ? 1U : 0U);
      entries[gap] = entries[larger];
      gap = larger;
      second = 2 * gap + 2;
    }
    if (second == size) {
      entries[gap] = entries[second - 1];
      gap = second - 1;
    }
    return gap;
  }

  void rise(std::size_t place, Entry entry) {
    Entry* const entries = entries_.data();
    while (place > 0) {
      std::size_t const parent = (place - 1) / 2;
      if (!(entries[parent].quality < entry.quality)) {
        break;
      }
      entries[place] = entries[parent];
      place = parent;
    }
    entries[place] = entry;
  }

  std::vector<Entry> entries_;
};

} // namespace vorn::mv
