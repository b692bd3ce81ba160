// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Compiles a function once for plain x86-64 and once for AVX2 and picks at load time what the processor has.
/// Both give the same bits: the build allows no fused multiply-add. Sanitizers cannot run code before their
/// own start-up, as the choice at load time would.
#if !defined(VORN_MV_PLAIN) && defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) &&            \
    !defined(VORN_MV_SANITIZED)
#define VORN_TARGET_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define VORN_TARGET_CLONES
#endif

/// Before a loop: what it writes is nothing that it reads from elsewhere. Spares the compiler the checks at
/// run time, which it gives up on when there are many arrays.
#if defined(__GNUC__) && !defined(__clang__)
#define VORN_INDEPENDENT_ITERATIONS _Pragma("GCC ivdep")
#else
#define VORN_INDEPENDENT_ITERATIONS
#endif

/// For a function whose callers are compiled for several processors: it takes part in that only where it is
/// inlined.
#ifdef __GNUC__
#define VORN_ALWAYS_INLINE [[gnu::always_inline]] inline
#else
#define VORN_ALWAYS_INLINE inline
#endif
