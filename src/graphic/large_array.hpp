// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/mman.h>
#include <vector>

namespace vorn::graphic {

/// Reserves room in a vector that is going to be filled. Getting fresh memory page by page costs more than
/// filling it, so the system is asked for large pages; where it has none, nothing changes.
template <class T>
void reserveLarge(std::vector<T>& array, std::size_t count) {
  array.reserve(count);
#ifdef MADV_HUGEPAGE
  constexpr std::uintptr_t largePage = std::uintptr_t{1} << 21;
  char* const memory = reinterpret_cast<char*>(array.data());
  std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(memory);
  std::uintptr_t const firstPage = (begin + largePage - 1) / largePage * largePage;
  std::uintptr_t const lastPage = (begin + array.capacity() * sizeof(T)) / largePage * largePage;
  if (lastPage > firstPage) {
    ::madvise(memory + (firstPage - begin), lastPage - firstPage, MADV_HUGEPAGE); // only a wish
  }
#endif
}

} // namespace vorn::graphic
