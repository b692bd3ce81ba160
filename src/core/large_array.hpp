// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

#include "core/large_pages.hpp"

namespace vorn {

/// Reserves room in a vector that is going to be filled.
template <class T>
void reserveLarge(std::vector<T>& array, std::size_t count) {
  array.reserve(count);
  wishLargePages(array.data(), array.capacity() * sizeof(T));
}

/// Memory for plain values that one use after another takes without clearing it.
template <class T>
class ReusedArray {
  static_assert(std::is_trivial_v<T>, "its values are left uninitialised");

public:
  /// Room for `count` values of any content; what an earlier call gave is void.
  T* provide(std::size_t count) {
    if (count > capacity_) {
      capacity_ = 0;
      values_.reset();
      values_.reset(new T[count]);
      capacity_ = count;
      wishLargePages(values_.get(), count * sizeof(T));
    }
    return values_.get();
  }

private:
  std::unique_ptr<T[]> values_;
  std::size_t capacity_ = 0;
};

/// A list of plain values that grows without moving what it holds, so growing never takes more than the list.
template <class T>
class SegmentedArray {
  static_assert(std::is_trivial_v<T>, "its values are left uninitialised");

public:
  std::size_t size() const { return size_; }

  /// Forgets everything but the memory.
  void clear() { size_ = 0; }

  void push_back(T const& value) {
    if (size_ == segments_.size() * segmentSize) {
      segments_.emplace_back(new T[segmentSize]);
    }
    (*this)[size_] = value;
    ++size_;
  }

  T& operator[](std::size_t i) { return segments_[i / segmentSize][i % segmentSize]; }
  T const& operator[](std::size_t i) const { return segments_[i / segmentSize][i % segmentSize]; }

private:
  static constexpr std::size_t segmentSize = std::size_t{1} << 14;

  std::vector<std::unique_ptr<T[]>> segments_;
  std::size_t size_ = 0;
};

/// Rows of plain values, each in one piece of memory, appended one after another without moving what is
/// there.
template <class T>
class RowStore {
  static_assert(std::is_trivial_v<T>, "its values are left uninitialised");

public:
  /// Forgets everything but the memory.
  void clear() {
    segment_ = 0;
    used_ = 0;
  }

  /// Room for the next row, of at most `most` values; `take` says how many there are.
  T* room(std::size_t most) {
    while (segment_ < segments_.size() && segments_[segment_].size - used_ < most) {
      ++segment_;
      used_ = 0;
    }
    if (segment_ == segments_.size()) {
      std::size_t const size = std::max(most, leastSegment);
      segments_.push_back({std::unique_ptr<T[]>(new T[size]), size});
    }
    return segments_[segment_].values.get() + used_;
  }
  void take(std::size_t count) { used_ += count; }

private:
  static constexpr std::size_t leastSegment = std::size_t{1} << 14;
  struct Segment {
    std::unique_ptr<T[]> values;
    std::size_t size;
  };

  std::vector<Segment> segments_;
  std::size_t segment_ = 0; ///< of the next row
  std::size_t used_ = 0;    ///< of that segment
};

} // namespace vorn
