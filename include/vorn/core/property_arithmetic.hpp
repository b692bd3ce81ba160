// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <type_traits>

#include <vorn/core/property.hpp>

/// Properties in sums and comparisons. They count with the value that they have: 12.7 times 2 is 25.4.
/// Results are doubles, which hold every value of an `int`; the quotient of two whole numbers is cut towards
/// zero, as in C++. The operators of whole numbers alone (%, &, |, ^, <<, >>) take a property as its `int`.
namespace vorn {

namespace detail {

template <class T>
constexpr bool isProperty = std::is_same_v<T, Property>;

/// What a property is counted together with: a number, an unscoped enum's constant, another property.
template <class T>
constexpr bool isOperand = isProperty<T> || std::is_arithmetic_v<T> ||
                           (std::is_enum_v<T> && std::is_convertible_v<T, int>);

template <class T>
constexpr bool isWholeOperand = isOperand<T> && !std::is_floating_point_v<T>;

template <class L, class R>
using IfNumbers = std::enable_if_t<(isProperty<L> && isOperand<R>) || (isOperand<L> && isProperty<R>), int>;

template <class L, class R>
using IfWholeNumbers =
    std::enable_if_t<(isProperty<L> && isWholeOperand<R>) || (isWholeOperand<L> && isProperty<R>), int>;

template <class T>
double number(T const& operand) {
  if constexpr (isProperty<T>) {
    return operand.getValue().toDouble();
  } else {
    return static_cast<double>(operand);
  }
}

template <class T>
auto whole(T const& operand) {
  if constexpr (isProperty<T>) {
    return operand.getValue().toInt();
  } else {
    return operand;
  }
}

template <class T>
bool isWhole(T const& operand) {
  if constexpr (isProperty<T>) {
    return operand.getValue().type() != Variant::Type::Double &&
           operand.getValue().type() != Variant::Type::String;
  } else {
    return !std::is_floating_point_v<T>;
  }
}

/// The quotient, cut towards zero where both are whole.
VORN_API double quotient(double dividend, double divisor, bool areWhole);

} // namespace detail

/// The value, as a double.
inline double operator+(Property const& p) {
  return detail::number(p);
}
/// The value with the other sign.
inline double operator-(Property const& p) {
  return -detail::number(p);
}
/// All bits of the value as an `int` turned over.
inline int operator~(Property const& p) {
  return ~detail::whole(p);
}

/// The sum.
template <class L, class R, detail::IfNumbers<L, R> = 0>
double operator+(L const& l, R const& r) {
  return detail::number(l) + detail::number(r);
}
/// The difference.
template <class L, class R, detail::IfNumbers<L, R> = 0>
double operator-(L const& l, R const& r) {
  return detail::number(l) - detail::number(r);
}
/// The product.
template <class L, class R, detail::IfNumbers<L, R> = 0>
double operator*(L const& l, R const& r) {
  return detail::number(l) * detail::number(r);
}
/// The quotient; cut towards zero where both are whole numbers. By 0 it is infinite or NaN.
template <class L, class R, detail::IfNumbers<L, R> = 0>
double operator/(L const& l, R const& r) {
  return detail::quotient(detail::number(l), detail::number(r), detail::isWhole(l) && detail::isWhole(r));
}

/// Adds the value.
template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
T& operator+=(T& l, Property const& r) {
  return l = static_cast<T>(l + r);
}
/// Takes the value off.
template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
T& operator-=(T& l, Property const& r) {
  return l = static_cast<T>(l - r);
}
/// Multiplies by the value.
template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
T& operator*=(T& l, Property const& r) {
  return l = static_cast<T>(l * r);
}
/// Divides by the value.
template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
T& operator/=(T& l, Property const& r) {
  return l = static_cast<T>(l / r);
}

/// The remainder of whole numbers.
template <class L, class R, detail::IfWholeNumbers<L, R> = 0>
auto operator%(L const& l, R const& r) {
  return detail::whole(l) % detail::whole(r);
}
/// The bits that both have.
template <class L, class R, detail::IfWholeNumbers<L, R> = 0>
auto operator&(L const& l, R const& r) {
  return detail::whole(l) & detail::whole(r);
}
/// The bits that either has.
template <class L, class R, detail::IfWholeNumbers<L, R> = 0>
auto operator|(L const& l, R const& r) {
  return detail::whole(l) | detail::whole(r);
}
/// The bits that one has alone.
template <class L, class R, detail::IfWholeNumbers<L, R> = 0>
auto operator^(L const& l, R const& r) {
  return detail::whole(l) ^ detail::whole(r);
}
/// The bits moved up.
template <class L, class R, detail::IfWholeNumbers<L, R> = 0>
auto operator<<(L const& l, R const& r) {
  return detail::whole(l) << detail::whole(r);
}
/// The bits moved down.
template <class L, class R, detail::IfWholeNumbers<L, R> = 0>
auto operator>>(L const& l, R const& r) {
  return detail::whole(l) >> detail::whole(r);
}

/// Whether the values are the same.
template <class L, class R, detail::IfNumbers<L, R> = 0>
bool operator==(L const& l, R const& r) {
  return detail::number(l) == detail::number(r);
}
/// Whether the values differ.
template <class L, class R, detail::IfNumbers<L, R> = 0>
bool operator!=(L const& l, R const& r) {
  return detail::number(l) != detail::number(r);
}
/// Whether the left value is the smaller one.
template <class L, class R, detail::IfNumbers<L, R> = 0>
bool operator<(L const& l, R const& r) {
  return detail::number(l) < detail::number(r);
}
/// Whether the left value is the greater one.
template <class L, class R, detail::IfNumbers<L, R> = 0>
bool operator>(L const& l, R const& r) {
  return detail::number(l) > detail::number(r);
}
/// Whether the left value is not the greater one.
template <class L, class R, detail::IfNumbers<L, R> = 0>
bool operator<=(L const& l, R const& r) {
  return detail::number(l) <= detail::number(r);
}
/// Whether the left value is not the smaller one.
template <class L, class R, detail::IfNumbers<L, R> = 0>
bool operator>=(L const& l, R const& r) {
  return detail::number(l) >= detail::number(r);
}

/// The value in words.
VORN_API std::ostream& operator<<(std::ostream& stream, Property const& p);

} // namespace vorn
