// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "graphic/file_colors.hpp"
#include "graphic/ply_header.hpp"

namespace vorn::graphic {

/// True when binary values of that encoding stand in the other byte order than this machine's, which is
/// little-endian.
inline bool isSwapped(PlyEncoding encoding) {
  return encoding == PlyEncoding::BigEndian;
}

/// The value of type T at any address, in this machine's byte order or the other.
template <class T, bool swapped>
T loadValue(char const* from) {
  if constexpr (!swapped || sizeof(T) == 1) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
  } else {
    char reversed[sizeof(T)];
    for (std::size_t byte = 0; byte < sizeof(T); ++byte) {
      reversed[byte] = from[sizeof(T) - 1 - byte];
    }
    T value;
    std::memcpy(&value, reversed, sizeof value);
    return value;
  }
}

/// Calls `action` with a value of the C++ type that `type` stands for.
template <class Action>
decltype(auto) withType(PlyType type, Action const& action) {
  switch (type) {
  case PlyType::Int8:
    return action(std::int8_t{});
  case PlyType::UInt8:
    return action(std::uint8_t{});
  case PlyType::Int16:
    return action(std::int16_t{});
  case PlyType::UInt16:
    return action(std::uint16_t{});
  case PlyType::Int32:
    return action(std::int32_t{});
  case PlyType::UInt32:
    return action(std::uint32_t{});
  case PlyType::Float32:
    return action(float{});
  case PlyType::Float64:
    break;
  }
  return action(double{});
}

/// The number at `from`; a double holds every value of every type.
inline double loadNumber(PlyType type, bool swapped, char const* from) {
  return withType(type, [&](auto typed) {
    using T = decltype(typed);
    return static_cast<double>(swapped ? loadValue<T, true>(from) : loadValue<T, false>(from));
  });
}

/// A colour component of a file that is of 0..255, clamped.
template <class T>
unsigned char toColor(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return colorByte(value / 255);
  } else {
    return value < 0 ? 0 : value > 255 ? 255 : static_cast<unsigned char>(value);
  }
}

} // namespace vorn::graphic
