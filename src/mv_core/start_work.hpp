// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>

namespace vorn::mv::detail {

/// Has `init_library` call `work`: for what a higher floor needs at start-up, which this floor cannot name.
/// `work` does nothing where it was done before. To be used from the initialiser of a static variable beside
/// what `work` makes.
/// @return true, for that variable
VORN_API bool addStartWork(void (*work)());

/// Waits while another thread runs `init_library`.
VORN_API void awaitStartWork();

} // namespace vorn::mv::detail
