// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#if !defined(VORN_MV_PLAIN) && defined(__linux__)
#include <sys/mman.h>
#endif

namespace vorn {

/// Getting fresh memory page by page costs more than filling it, so the system is asked for large pages;
/// where it has none, nothing changes.
inline void wishLargePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes) {
#if !defined(VORN_MV_PLAIN) && defined(MADV_HUGEPAGE)
  constexpr std::uintptr_t largePage = std::uintptr_t{1} << 21;
  std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(memory);
  std::uintptr_t const firstPage = (begin + largePage - 1) / largePage * largePage;
  std::uintptr_t const lastPage = (begin + bytes) / largePage * largePage;
  if (lastPage > firstPage) {
    ::madvise(static_cast<char*>(memory) + (firstPage - begin), lastPage - firstPage, MADV_HUGEPAGE);
  }
#endif
}

} // namespace vorn
