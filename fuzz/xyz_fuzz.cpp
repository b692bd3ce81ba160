// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "fuzz_reader.hpp"
#include "graphic/xyz_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::tryReader(data, size, vorn::graphic::readXyz);
}
