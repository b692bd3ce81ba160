// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/property.hpp>

namespace vorn::detail {

/// A new property of the type that its row names, however the numbers in the row are written.
template <class T>
Property* rowOf(char const* name, T const& value) {
  return new Property(name, Variant(value));
}
/// The same with a range.
template <class T>
Property* rowOf(char const* name, T const& value, T const& min, T const& max) {
  return new Property(name, Variant(value), Variant(min), Variant(max));
}

} // namespace vorn::detail

/// One row of a class's table of properties, in the public part of the class: type, typed name, name, default
/// and, where it is bounded, least and greatest value. It is the only place that states them:
///
///     /// Half the side of the square, px.
///     VORN_PROPERTY(int, radius, Radius, 1, 0, 32);
///
/// declares `int radius() const`, which gives the value, and `void setRadius(int)`, which refuses what
/// `filter["Radius"] = value` refuses. The constructor installs the row: `declareProperties({radiusRow()})`.
/// The typed name is the name with its leading capitals lowered ("PXMin" is `pxMin`); the type is `int`,
/// `double`, `bool` or an enum class of the library.
#define VORN_PROPERTY(Type, typedName, Name, ...)                                                            \
  Type typedName() const {                                                                                   \
    return this->getProperty(#Name).template get<Type>();                                                    \
  }                                                                                                          \
                                                                                                             \
protected:                                                                                                   \
  static ::vorn::Property* typedName##Row() {                                                                \
    return ::vorn::detail::rowOf<Type>(#Name, __VA_ARGS__);                                                  \
  }                                                                                                          \
                                                                                                             \
public:                                                                                                      \
  void set##Name(Type value) {                                                                               \
    this->getProperty(#Name) = ::vorn::Variant(value);                                                       \
  }
