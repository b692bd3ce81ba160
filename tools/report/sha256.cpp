// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/sha256.hpp"

#include <algorithm>
#include <cstring>

namespace vorn::tools {

namespace {

/// The first 32 bits of the fractional parts of the cube roots of the first 64 primes (FIPS 180-4, 4.2.2).
constexpr std::array<std::uint32_t, 64> roundConstants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr std::uint32_t rotated(std::uint32_t word, int bits) {
  return word >> bits | word << (32 - bits);
}

} // namespace

void Sha256::takeBlock(std::uint8_t const* block) {
  std::array<std::uint32_t, 64> words;
  for (std::size_t i = 0; i < 16; ++i) {
    std::uint8_t const* const bytes = block + 4 * i;
    words[i] = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 |
               std::uint32_t{bytes[3]};
  }
  for (std::size_t i = 16; i < words.size(); ++i) {
    std::uint32_t const a = words[i - 15];
    std::uint32_t const b = words[i - 2];
    words[i] = words[i - 16] + (rotated(a, 7) ^ rotated(a, 18) ^ a >> 3) + words[i - 7] +
               (rotated(b, 17) ^ rotated(b, 19) ^ b >> 10);
  }
  auto [a, b, c, d, e, f, g, h] = state_;
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::uint32_t const first = h + (rotated(e, 6) ^ rotated(e, 11) ^ rotated(e, 25)) + ((e & f) ^ (~e & g)) +
                                roundConstants[i] + words[i];
    std::uint32_t const second =
        (rotated(a, 2) ^ rotated(a, 13) ^ rotated(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  std::array<std::uint32_t, 8> const sums{a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < sums.size(); ++i) {
    state_[i] += sums[i];
  }
}

void Sha256::update(void const* data, std::size_t size) {
  auto const* bytes = static_cast<std::uint8_t const*>(data);
  while (size > 0) {
    std::size_t const filled = size_ % blockSize;
    if (filled == 0 && size >= blockSize) {
      takeBlock(bytes);
      bytes += blockSize;
      size -= blockSize;
      size_ += blockSize;
      continue;
    }
    std::size_t const taken = std::min(size, blockSize - filled);
    std::memcpy(pending_.data() + filled, bytes, taken);
    bytes += taken;
    size -= taken;
    size_ += taken;
    if (filled + taken == blockSize) {
      takeBlock(pending_.data());
    }
  }
}

std::string Sha256::digest() {
  // A set bit, zeros, and the number of bits, most significant byte first, fill the last block.
  std::uint64_t const bits = 8 * size_;
  constexpr std::size_t lengthSize = 8;
  std::array<std::uint8_t, blockSize> const padding{0x80};
  std::size_t const filled = size_ % blockSize;
  update(padding.data(), (filled < blockSize - lengthSize ? blockSize : 2 * blockSize) - lengthSize - filled);
  std::array<std::uint8_t, lengthSize> length;
  for (std::size_t i = 0; i < lengthSize; ++i) {
    length[i] = static_cast<std::uint8_t>(bits >> 8 * (lengthSize - 1 - i));
  }
  update(length.data(), length.size());

  std::string text;
  for (std::uint32_t const word : state_) {
    for (int shift = 28; shift >= 0; shift -= 4) {
      text += "0123456789abcdef"[word >> shift & 15U];
    }
  }
  return text;
}

} // namespace vorn::tools
