// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/gray_code.hpp>

#include <string>

#include "core/error.hpp"

namespace vorn::mv {

unsigned int bin2Gray(unsigned int binary) {
  return binary ^ (binary >> 1U);
}

unsigned int gray2Bin(unsigned int gray) {
  unsigned int binary = gray;
  for (gray >>= 1U; gray != 0; gray >>= 1U) {
    binary ^= gray;
  }
  return binary;
}

void create_graycode_LUT(std::vector<unsigned short>& lut, int n) {
  constexpr int maxEntries = 65536;
  if (n < 0 || n > maxEntries) {
    throw error("A Gray code table has 0 to 65536 entries, not " + std::to_string(n), "create_graycode_LUT");
  }
  lut.resize(static_cast<std::size_t>(n));
  for (std::size_t i = 0; i < lut.size(); ++i) {
    lut[i] = static_cast<unsigned short>(gray2Bin(static_cast<unsigned int>(i)));
  }
}

} // namespace vorn::mv
