// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/png.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

namespace vorn::mv {

namespace {

std::string bigEndian(std::uint32_t value) {
  return {static_cast<char>(value >> 24U), static_cast<char>(value >> 16U), static_cast<char>(value >> 8U),
          static_cast<char>(value)};
}

std::uint32_t crc32(std::string const& bytes) {
  static std::array<std::uint32_t, 256> const table = [] {
    std::array<std::uint32_t, 256> made{};
    for (std::uint32_t i = 0; i < made.size(); ++i) {
      std::uint32_t value = i;
      for (int k = 0; k < 8; ++k) {
        value = (value & 1U) != 0 ? 0xEDB88320U ^ (value >> 1U) : value >> 1U;
      }
      made[i] = value;
    }
    return made;
  }();
  std::uint32_t crc = 0xFFFFFFFFU;
  for (char const byte : bytes) {
    crc = table[(crc ^ static_cast<unsigned char>(byte)) & 0xFFU] ^ (crc >> 8U);
  }
  return ~crc;
}

std::string chunk(std::string const& kind, std::string const& data) {
  std::string const body = kind + data;
  return bigEndian(static_cast<std::uint32_t>(data.size())) + body + bigEndian(crc32(body));
}

/// Red, green, blue rows, each after the byte 0 for "no filter".
std::string rowsOf(cv::Mat const& image) {
  std::string rows;
  rows.reserve(static_cast<std::size_t>(image.rows) * (3 * static_cast<std::size_t>(image.cols) + 1));
  for (int y = 0; y < image.rows; ++y) {
    rows += '\0';
    for (int x = 0; x < image.cols; ++x) {
      auto const& color = image.at<cv::Vec3b>(y, x);
      rows += {static_cast<char>(color[2]), static_cast<char>(color[1]), static_cast<char>(color[0])};
    }
  }
  return rows;
}

/// A zlib stream (RFC 1950) of stored blocks (RFC 1951).
std::string stored(std::string const& data) {
  constexpr std::size_t largestBlock = 65535;
  constexpr std::uint32_t modulus = 65521;
  std::string stream("\x78\x01", 2);
  std::uint32_t low = 1;
  std::uint32_t high = 0;
  for (std::size_t first = 0; first < data.size(); first += largestBlock) {
    std::size_t const size = std::min(largestBlock, data.size() - first);
    auto const length = static_cast<unsigned>(size);
    stream += {static_cast<char>(first + size == data.size() ? 1 : 0), static_cast<char>(length),
               static_cast<char>(length >> 8U), static_cast<char>(~length), static_cast<char>(~length >> 8U)};
    stream.append(data, first, size);
  }
  for (char const byte : data) {
    low = (low + static_cast<unsigned char>(byte)) % modulus;
    high = (high + low) % modulus;
  }
  return stream + bigEndian((high << 16U) | low);
}

} // namespace

std::string storedPng(cv::Mat const& image) {
  std::string const header = bigEndian(static_cast<std::uint32_t>(image.cols)) +
                             bigEndian(static_cast<std::uint32_t>(image.rows)) +
                             std::string("\x08\x02\x00\x00\x00", 5); // 8 bits, colour, nothing interlaced
  return std::string("\x89PNG\r\n\x1A\n", 8) + chunk("IHDR", header) + chunk("IDAT", stored(rowsOf(image))) +
         chunk("IEND", "");
}

} // namespace vorn::mv
