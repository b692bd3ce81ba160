// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sys/mman.h>
#include <type_traits>
#include <vector>

namespace vorn {

/// Getting fresh memory page by page costs more than filling it, so the system is asked for large pages;
/// where it has none, nothing changes.
inline void wishLargePages(void* memory, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
  constexpr std::uintptr_t largePage = std::uintptr_t{1} << 21;
  std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(memory);
  std::uintptr_t const firstPage = (begin + largePage - 1) / largePage * largePage;
  std::uintptr_t const lastPage = (begin + bytes) / largePage * largePage;
  if (lastPage > firstPage) {
    ::madvise(static_cast<char*>(memory) + (firstPage - begin), lastPage - firstPage, MADV_HUGEPAGE);
  }
#endif
}

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

} // namespace vorn
