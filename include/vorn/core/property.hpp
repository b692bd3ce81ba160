// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>
#include <vorn/core/variant.hpp>

namespace vorn {

namespace detail {
/// Numbers, but not characters: a property given for one would turn its value into a letter.
template <class T>
constexpr bool isNumber =
    std::is_arithmetic_v<T> && !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t> &&
    !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>;
} // namespace detail

/// A named value of a fixed type, with a default and perhaps a range.
///
/// The type is that of the default. A new value is converted to it: whole numbers to floating-point ones and
/// back where nothing is lost, numbers spelled out as text, 0 and 1 as truth values; an enum takes an enum of
/// its own class, an index or an item name. Anything else, a value outside the range, and NaN in a ranged
/// property, are refused with an `Exception` that names property, value and range; the old value stays.
class VORN_API Property : public IObject, public IJsonSerializable {
public:
  /// A property without a range, at its default.
  Property(std::string name, Variant value);
  /// @throws Exception when `value` lies outside [min, max]
  Property(std::string name, Variant value, Variant const& min, Variant const& max);

  /// Unique in a set.
  std::string const& getName() const { return name_; }
  /// The current value.
  Variant const& getValue() const { return value_; }
  /// The value given at construction.
  Variant const& getDefault() const { return default_; }
  /// Whether `getMin` and `getMax` bound the value.
  bool hasRange() const { return range_.has_value(); }
  /// The least allowed value, inclusive.
  /// @throws Exception when the property has no range
  Variant const& getMin() const;
  /// The greatest allowed value, inclusive.
  /// @throws Exception when the property has no range
  Variant const& getMax() const;
  /// Goes back to the value given at construction.
  void setDefault() { value_ = default_; }

  /// Stores a new value.
  Property& operator=(Variant const& value);
  /// Takes the other property's value alone, as `a["Radius"] = b["Radius"]` means it; name, default and range
  /// stay.
  Property& operator=(Property const& other) { return *this = other.value_; }
  Property(Property const& other) = default;
  ~Property() override = default;

  /// The value as a `T`: a number (clamped to the range of `T`; whole numbers cut towards zero), a truth
  /// value, `std::string`, or an enum class of the library.
  /// @throws Exception when text is no number, or the property is no enum of this class
  template <class T>
  T get() const;

  /// The value as `Variant` converts it, cut towards zero: `int const radius = filter["Radius"];`.
  operator int() const { return value_.toInt(); }
  /// The value as any other kind of number: `double const pitch = detector["PatternDim"];`.
  template <class T, class = std::enable_if_t<detail::isNumber<T> && !std::is_same_v<T, int> &&
                                              !std::is_same_v<T, bool>>>
  operator T() const {
    return get<T>();
  }
  /// The value as `Variant` converts it.
  operator bool() const { return value_.toBool(); }
  /// @throws Exception when the property is no enum
  operator IEnum const&() const { return value_.toEnum(); }

  std::string const& getClassName() const override;
  /// "vorn::IObject" and "vorn::IJsonSerializable".
  std::vector<std::string> const& getInterfaces() const override;
  /// "Name = value".
  std::string toString() const override;
  bool isNull() const override { return false; }
  void finalize() override {}
  /// Takes the value: a number, true or false, an item name, "inf", "-inf" or "nan".
  void read(nlohmann::json const& json) override;
  /// Writes the value; an infinity or NaN, which JSON has no number for, as "inf", "-inf" or "nan".
  void write(nlohmann::json& json) const override;

private:
  struct Range {
    Variant min;
    Variant max;
  };

  std::string label() const;
  Variant converted(Variant const& value) const;
  void checkRange(Variant const& value) const;

  std::string name_;
  Variant value_;
  Variant default_;
  std::optional<Range> range_;
};

template <class T>
T Property::get() const {
  if constexpr (std::is_same_v<T, bool>) {
    return value_.toBool();
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value_.toDouble());
  } else if constexpr (std::is_same_v<T, std::uint64_t>) {
    std::int64_t const value = value_.toInt64();
    return value < 0 ? T{0} : static_cast<T>(value);
  } else if constexpr (std::is_integral_v<T>) {
    std::int64_t const value = value_.toInt64();
    constexpr auto least = static_cast<std::int64_t>(std::numeric_limits<T>::min());
    constexpr auto greatest = static_cast<std::int64_t>(std::numeric_limits<T>::max());
    return static_cast<T>(value < least ? least : value > greatest ? greatest : value);
  } else if constexpr (std::is_same_v<T, std::string>) {
    return value_.toString();
  } else {
    static_assert(std::is_base_of_v<IEnum, T>, "A property holds a number, a truth value, a text or an enum");
    T item;
    detail::checkEnumClass(value_.toEnum(), item);
    item.setIndex(value_.toEnum().getIndex());
    return item;
  }
}

} // namespace vorn

#include <vorn/core/property_arithmetic.hpp>
