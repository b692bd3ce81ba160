// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/lzf.hpp"

namespace vorn::graphic {

std::vector<char> unpackLzf(char const* data, std::size_t length, std::size_t size) {
  std::vector<char> out;
  out.reserve(size);
  auto const byteAt = [&](std::size_t place) {
    return static_cast<std::size_t>(static_cast<unsigned char>(data[place]));
  };
  for (std::size_t next = 0; next < length;) {
    std::size_t const control = byteAt(next++);
    if (control < 32) {
      std::size_t const run = control + 1;
      if (run > length - next || run > size - out.size()) {
        return {};
      }
      out.insert(out.end(), data + next, data + next + run);
      next += run;
      continue;
    }
    std::size_t repeated = control >> 5U;
    if (repeated == 7) {
      if (next >= length) {
        return {};
      }
      repeated += byteAt(next++);
    }
    repeated += 2;
    if (next >= length) {
      return {};
    }
    std::size_t const back = ((control & 31U) << 8U) + byteAt(next++) + 1;
    if (back > out.size() || repeated > size - out.size()) {
      return {};
    }
    for (std::size_t i = 0; i < repeated; ++i) {
      out.push_back(out[out.size() - back]); // may run into what it has just written
    }
  }
  if (out.size() != size) {
    return {};
  }
  return out;
}

} // namespace vorn::graphic
