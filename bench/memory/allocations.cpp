// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A program's own malloc takes the place of the C library's in every library that it loads. These count and
// pass on.
#include "allocations.hpp"

#include <atomic>
#include <cerrno>
#include <malloc.h>

namespace vorn::bench {

namespace {

std::atomic<std::size_t> allocated{0};
std::atomic<std::size_t> peak{0};

void* taken(void* memory) {
  std::size_t const now = allocated += malloc_usable_size(memory);
  std::size_t highest = peak;
  while (highest < now && !peak.compare_exchange_weak(highest, now)) {
  }
  return memory;
}

void given(void* memory) {
  allocated -= malloc_usable_size(memory);
}

} // namespace

std::size_t allocatedBytes() {
  return allocated;
}

std::size_t peakBytes() {
  return peak;
}

void resetPeak() {
  peak = allocated.load();
}

} // namespace vorn::bench

#define VORN_REPLACES extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

VORN_REPLACES void* malloc(std::size_t size) noexcept {
  return vorn::bench::taken(__libc_malloc(size));
}

VORN_REPLACES void* calloc(std::size_t count, std::size_t size) noexcept {
  return vorn::bench::taken(__libc_calloc(count, size));
}

VORN_REPLACES void* realloc(void* memory, std::size_t size) noexcept {
  // A large block is moved without both being there at once.
  vorn::bench::given(memory);
  void* const moved = __libc_realloc(memory, size);
  vorn::bench::taken(moved == nullptr && size != 0 ? memory : moved);
  return moved;
}

VORN_REPLACES void free(void* memory) noexcept {
  vorn::bench::given(memory);
  __libc_free(memory);
}

VORN_REPLACES void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return vorn::bench::taken(__libc_memalign(alignment, size));
}

VORN_REPLACES void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return vorn::bench::taken(__libc_memalign(alignment, size));
}

VORN_REPLACES int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  void* const made = vorn::bench::taken(__libc_memalign(alignment, size));
  if (made == nullptr && size != 0) {
    return ENOMEM;
  }
  *memory = made;
  return 0;
}
