// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <opencv2/core/mat.hpp>

#include "core/bits.hpp"

namespace vorn::mv::sl {

/// A mask of one bit a pixel, written and read row by row as bytes of 255 and 0.
class BitMap {
public:
  /// Keeps the memory when the size is the same; what it holds is void.
  void create(cv::Size const& size) {
    width_ = size.width;
    bits_.create(size.height, (size.width + perByte - 1) / perByte);
  }

  void putRow(int y, uchar const* marks) {
    constexpr std::uint64_t lowest = 0x0101010101010101U;
    // Brings the lowest bits of eight bytes together in the highest byte.
    constexpr std::uint64_t gather = 0x0102040810204080U;
    uchar* out = bits_[y];
    int x = 0;
    for (; x + perByte <= width_; x += perByte) {
      *out++ = static_cast<uchar>((eightBytes(marks + x) & lowest) * gather >> 56U);
    }
    unsigned rest = 0;
    for (int k = 0; x + k < width_; ++k) {
      rest |= (marks[x + k] & 1U) << static_cast<unsigned>(k);
    }
    if (x < width_) {
      *out = static_cast<uchar>(rest);
    }
  }

  void readRow(int y, uchar* marks) const {
    // Bit k of a byte, wherever it stands in byte k of so many copies, carries into the highest one.
    constexpr std::uint64_t copies = 0x0101010101010101U;
    constexpr std::uint64_t each = 0x8040201008040201U;
    constexpr std::uint64_t carry = 0x7f7f7f7f7f7f7f7fU;
    uchar const* in = bits_[y];
    int x = 0;
    for (; x + perByte <= width_; x += perByte) {
      std::uint64_t const spread = (*in++ * copies) & each;
      std::uint64_t const set = (((spread + carry) >> 7U) & copies) * 255U;
      for (unsigned k = 0; k < perByte; ++k) {
        marks[x + static_cast<int>(k)] = static_cast<uchar>(set >> (perByte * k));
      }
    }
    for (; x < width_; ++x) {
      marks[x] = isSet(y, x) ? 255 : 0;
    }
  }

  bool isSet(int y, int x) const {
    return (static_cast<unsigned>(bits_[y][x / perByte]) >> static_cast<unsigned>(x % perByte) & 1U) != 0;
  }

private:
  static constexpr int perByte = 8;

  int width_ = 0;
  cv::Mat_<uchar> bits_;
};

} // namespace vorn::mv::sl
