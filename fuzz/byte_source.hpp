// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <opencv2/core.hpp>

namespace vorn::fuzz {

/// Turns a fuzzer's bytes into choices, numbers and images, front to back. Where the bytes have run out it
/// gives zeros.
class ByteSource {
public:
  ByteSource(std::uint8_t const* data, std::size_t size) : data_(data), left_(size) {}

  std::uint8_t byte() {
    if (left_ == 0) {
      return 0;
    }
    --left_;
    return *data_++;
  }

  bool flag() { return (byte() & 1) != 0; }

  /// From `low` to `high`, both included and less than 256 apart.
  int number(int low, int high) { return low + byte() % (high - low + 1); }

  /// Any value at all, of a type without padding.
  template <class T>
  T any() {
    std::uint8_t bytes[sizeof(T)];
    std::generate(std::begin(bytes), std::end(bytes), [this] { return byte(); });
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }

  /// One of a list.
  template <class T, std::size_t count>
  T const& oneOf(T const (&values)[count]) {
    return values[byte() % count];
  }

  /// A matrix within a larger one, so that its rows are not continuous, or one by itself. Its bytes come from
  /// noise or from the source, and may spell any number.
  cv::Mat matrix(cv::Size size, int type) {
    if (size.empty()) {
      return {size, type};
    }
    bool const isRegion = flag();
    int const margin = isRegion ? 2 : 0;
    cv::Mat whole(size.height + 2 * margin, size.width + 2 * margin, type);
    cv::Mat const cells(whole.rows, static_cast<int>(whole.cols * static_cast<int>(whole.elemSize())),
                        CV_8UC1, whole.data);
    fill(cells);
    return whole(cv::Rect({margin, margin}, size));
  }

private:
  void fill(cv::Mat cells) {
    switch (number(0, 3)) {
    case 0:
      cells.setTo(byte());
      break;
    case 1: {
      cv::RNG noise(byte());
      noise.fill(cells, cv::RNG::UNIFORM, 0, 256);
      break;
    }
    case 2:
      cells.forEach<std::uint8_t>([&](std::uint8_t& value, int const* place) {
        value = static_cast<std::uint8_t>(place[1] * 31 + place[0]);
      });
      break;
    default:
      for (int row = 0; row < cells.rows; ++row) {
        std::generate_n(cells.ptr(row), cells.cols, [this] { return byte(); });
      }
    }
  }

  std::uint8_t const* data_;
  std::size_t left_;
};

} // namespace vorn::fuzz
