// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

namespace vorn::test {

/// The start value of every random source of a test: VORN_TEST_SEED, or 1.
inline unsigned seed() {
  char const* text = std::getenv("VORN_TEST_SEED");
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : 1U;
}

} // namespace vorn::test
