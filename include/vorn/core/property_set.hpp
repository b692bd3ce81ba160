// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/core/object.hpp>
#include <vorn/core/property.hpp>

namespace vorn {

/// An ordered collection of properties, which it owns.
class VORN_API PropertySet {
public:
  PropertySet() = default;
  /// Takes ownership of the properties.
  /// @throws Exception when one is null or two have the same name
  PropertySet(std::initializer_list<Property*> properties);
  /// Copies every property.
  PropertySet(PropertySet const& other);
  PropertySet(PropertySet&& other) noexcept = default;
  /// Copies every property.
  PropertySet& operator=(PropertySet const& other);
  PropertySet& operator=(PropertySet&& other) noexcept = default;
  ~PropertySet() = default;

  /// Takes ownership of `property`.
  /// @throws Exception when it is null or there is one of its name
  void add(Property* property);
  /// The property of this name, or null.
  Property* find(std::string const& name) const;
  /// In the order in which they were added.
  std::vector<Property*> const& properties() const { return properties_; }

private:
  std::vector<std::unique_ptr<Property>> owned_;
  std::vector<Property*> properties_;
};

/// Named access to an object's properties.
class VORN_API IPropertySet : public virtual IObject {
public:
  ~IPropertySet() override;

  /// The name of the set: its object's class name.
  virtual std::string const& getName() const = 0;
  /// @throws Exception when there is no property of this name
  virtual Property& getProperty(std::string const& name) = 0;
  /// @throws Exception when there is no property of this name
  virtual Property const& getProperty(std::string const& name) const = 0;
  /// The property of this name, or null.
  virtual Property* findProperty(std::string const& name) = 0;
  /// Whether there is a property of this name.
  virtual bool hasProperty(std::string const& name) const = 0;
  /// Takes ownership of `property`; returns this set.
  /// @throws Exception when it is null or there is one of its name
  virtual IPropertySet* addProperty(Property* property) = 0;
  /// Sets every property to its default; returns this set.
  virtual IPropertySet* setDefault() = 0;
  /// The names in the order of the set.
  virtual std::vector<std::string> getPropertyNames() const = 0;
  /// The properties in the order of the set. To change them, call it on an object that is not const: through
  /// the pointers of a const one, copies of the object might change too.
  virtual std::vector<Property*> const& getProperties() const = 0;
  /// The properties in the order of the set, to change.
  virtual std::vector<Property*> const& getProperties() {
    return static_cast<IPropertySet const&>(*this).getProperties();
  }
  /// As `getProperty`: `filter["Radius"] = 3`.
  virtual Property& operator[](std::string const& name) = 0;
  /// As `getProperty`.
  virtual Property const& operator[](std::string const& name) const = 0;

protected:
  IPropertySet() = default;
  IPropertySet(IPropertySet const&) = default;
  IPropertySet(IPropertySet&&) = default;
  IPropertySet& operator=(IPropertySet const&) = default;
  IPropertySet& operator=(IPropertySet&&) = default;
};

/// An object that is configured by properties.
///
/// A class makes its record, then its properties, in its constructor:
///
///     BlurFilter::BlurFilter() : AlgorithmBase(new PropertySetBase::Private) {
///       declareProperties({new Property("Radius", 1, 0, 32)});
///     }
class VORN_API PropertySetBase : public virtual ObjectBase,
                                 public virtual IPropertySet,
                                 public virtual IJsonSerializable {
public:
  /// The record of a class that has no more state than its properties.
  struct VORN_API Private : Record<PropertySetBase::Private> {
    /// The object's properties.
    PropertySet properties;
  };

  PropertySetBase(PropertySetBase const&) = default;
  PropertySetBase(PropertySetBase&&) = default;
  PropertySetBase& operator=(PropertySetBase const&) = default;
  PropertySetBase& operator=(PropertySetBase&&) = default;
  ~PropertySetBase() override;

  std::string const& getName() const override { return getClassName(); }
  Property& getProperty(std::string const& name) override;
  /// @throws Exception when there is no property of this name
  Property const& getProperty(std::string const& name) const override;
  Property* findProperty(std::string const& name) override;
  /// Whether there is a property of this name.
  bool hasProperty(std::string const& name) const override;
  IPropertySet* addProperty(Property* property) override;
  IPropertySet* setDefault() override;
  std::vector<std::string> getPropertyNames() const override;
  std::vector<Property*> const& getProperties() const override;
  std::vector<Property*> const& getProperties() override;
  Property& operator[](std::string const& name) override { return getProperty(name); }
  /// As `getProperty`.
  Property const& operator[](std::string const& name) const override { return getProperty(name); }

  /// Sets the properties that `json` names; members that are no property are ignored.
  /// @throws Exception when `json` is no object or a value is refused; no property is changed then
  void read(nlohmann::json const& json) override;
  /// Writes one member a property: its name and its value, enums by the name of their item.
  void write(nlohmann::json& json) const override;

  /// "vorn::IObject" and "vorn::IJsonSerializable".
  std::vector<std::string> const& getInterfaces() const override;
  /// The class name and every property with its value.
  std::string toString() const override;

protected:
  /// Takes over `record`, which must be a `PropertySetBase::Private`.
  explicit PropertySetBase(ObjectBase::Private* record);

  /// Installs the object's properties in place of those it has; takes ownership of them.
  void declareProperties(std::initializer_list<Property*> properties);
};

} // namespace vorn
