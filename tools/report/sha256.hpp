// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vorn::tools {

/// SHA-256 (FIPS 180-4) of data that come in pieces.
class Sha256 {
public:
  /// Appends `size` bytes, of any number.
  void update(void const* data, std::size_t size);

  /// The hash of all that was appended, as 64 hexadecimal digits in lower case. Nothing can be appended
  /// afterwards.
  std::string digest();

private:
  static constexpr std::size_t blockSize = 64;

  void takeBlock(std::uint8_t const* block);

  std::array<std::uint32_t, 8> state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<std::uint8_t, blockSize> pending_{};
  std::uint64_t size_ = 0; ///< bytes so far; those beyond the last whole block are pending
};

} // namespace vorn::tools
