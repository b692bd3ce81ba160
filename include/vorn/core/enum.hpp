// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn {

/// A value out of a fixed list of named items.
class VORN_API IEnum : public virtual IObject, public virtual IJsonSerializable {
public:
  ~IEnum() override;

  /// The place of the current item in `getItems()`.
  virtual int getIndex() const = 0;
  /// @throws Exception when there is no item with this index
  virtual void setIndex(int index) = 0;
  /// The item names in index order; one list an enum class.
  virtual std::vector<std::string> const& getItems() const = 0;
  /// An enum of the same class with the same item.
  virtual std::unique_ptr<IEnum> clone() const = 0;

  /// Selects an item by its name.
  /// @throws Exception when there is no item of this name
  void setItem(std::string const& name);

  /// The name of the current item.
  std::string toString() const override;
  /// "vorn::IObject" and "vorn::IJsonSerializable".
  std::vector<std::string> const& getInterfaces() const override;
  bool isNull() const override { return false; }
  void finalize() override {}
  /// Takes an item name or an index.
  void read(nlohmann::json const& json) override;
  /// Writes the item name.
  void write(nlohmann::json& json) const override;

protected:
  IEnum() = default;
  IEnum(IEnum const&) = default;
  IEnum(IEnum&&) = default;
  IEnum& operator=(IEnum const&) = default;
  IEnum& operator=(IEnum&&) = default;
};

namespace detail {
/// The names in "A, B, C", without blanks.
VORN_API std::vector<std::string> enumItems(char const* list);
VORN_API void checkEnumIndex(int index, std::vector<std::string> const& items, std::string const& className);
/// @throws Exception when the two are of different classes
VORN_API void checkEnumClass(IEnum const& value, IEnum const& wanted);
} // namespace detail

/// The shape of an enum class, written once. A class gives its name, its list of items and its item
/// constants:
///
///     class MorphShape : public EnumBase<MorphShape> {
///     public:
///       enum Item { Rect, Cross, Ellipse };
///       static constexpr char const* className = "vorn::mv::MorphShape";
///       static constexpr char const* itemList = "Rect, Cross, Ellipse";
///       MorphShape(Item item = Rect) : EnumBase(item) {}
///     };
template <class Self>
class EnumBase : public IEnum {
public:
  /// As `IEnum` says.
  int getIndex() const override { return index_; }

  /// As `IEnum` says.
  void setIndex(int index) override {
    detail::checkEnumIndex(index, items(), getClassName());
    index_ = index;
  }

  /// As `IEnum` says.
  std::vector<std::string> const& getItems() const override { return items(); }
  /// As `IEnum` says.
  std::unique_ptr<IEnum> clone() const override {
    return std::make_unique<Self>(static_cast<Self const&>(*this));
  }

  /// `Self::className`.
  std::string const& getClassName() const override {
    static std::string const name = Self::className;
    return name;
  }

  /// Whether both have the same item.
  friend bool operator==(Self const& a, Self const& b) { return a.getIndex() == b.getIndex(); }
  /// Whether they have different items.
  friend bool operator!=(Self const& a, Self const& b) { return a.getIndex() != b.getIndex(); }

protected:
  /// Not checked: the item constants of a class are right by themselves.
  explicit EnumBase(int index) : index_(index) {}

private:
  static std::vector<std::string> const& items() {
    static std::vector<std::string> const names = detail::enumItems(Self::itemList);
    return names;
  }

  int index_;
};

} // namespace vorn
