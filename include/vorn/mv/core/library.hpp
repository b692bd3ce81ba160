// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// Starts the library and answers questions about the whole of it.
class VORN_API Library {
public:
  /// Opens the feature gate, switches debug output on and builds the decoders' lookup tables. To be called
  /// once before anything else; a further call, from any thread, builds nothing again.
  static void init();

  /// As `init`, with debug output as the host wants it: what the library does and how long it takes is logged
  /// when `debug` is true. `start` or `init` is to be called once before anything else.
  static void start(bool debug);

  /// Whether diagnostics are written: the value of the system key "EnableDebugMode", true when it is not set.
  static bool getEnableDebug();

  /// The feature gate of the costly operations. While another thread is starting the library, waits until it
  /// is ready.
  /// @throws Exception before `init` or `start`
  static void assertValid();
};

/// Builds the lookup tables of the decoders, those that are not built yet.
VORN_API void init_library();

} // namespace vorn::mv
