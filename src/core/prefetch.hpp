// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vorn {

/// Asks for memory that is going to be read soon, where the compiler can say so.
inline void prefetch([[maybe_unused]] void const* memory) {
#if !defined(VORN_MV_PLAIN) && defined(__GNUC__)
  __builtin_prefetch(memory);
#endif
}

} // namespace vorn
