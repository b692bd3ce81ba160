// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/property_set.hpp>

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/error.hpp"

namespace vorn {

namespace {

Property& require(PropertySet const& set, std::string const& name, std::string const& owner) {
  Property* const property = set.find(name);
  if (property == nullptr) {
    throw error("There is no property \"" + name + "\"", owner.c_str());
  }
  return *property;
}

void requireProperty(Property const* property) {
  if (property == nullptr) {
    throw error("A null pointer is no property", "PropertySet");
  }
}

PropertySet const& properties(ObjectBase::Private const& record) {
  return static_cast<PropertySetBase::Private const&>(record).properties;
}

PropertySet& properties(ObjectBase::Private& record) {
  return static_cast<PropertySetBase::Private&>(record).properties;
}

} // namespace

PropertySet::PropertySet(std::initializer_list<Property*> properties) {
  for (Property* property : properties) {
    owned_.emplace_back(property);
  }
  for (auto const& property : owned_) {
    requireProperty(property.get());
    if (find(property->getName()) != nullptr) {
      throw error("There are two properties \"" + property->getName() + "\"", "PropertySet");
    }
    properties_.push_back(property.get());
  }
}

PropertySet::PropertySet(PropertySet const& other) {
  for (Property const* property : other.properties_) {
    add(new Property(*property));
  }
}

PropertySet& PropertySet::operator=(PropertySet const& other) {
  if (this != &other) {
    *this = PropertySet(other);
  }
  return *this;
}

void PropertySet::add(Property* property) {
  std::unique_ptr<Property> owned(property);
  requireProperty(property);
  if (find(property->getName()) != nullptr) {
    throw error("There is a property \"" + property->getName() + "\" already", "PropertySet");
  }
  properties_.reserve(properties_.size() + 1);
  owned_.push_back(std::move(owned));
  properties_.push_back(property);
}

Property* PropertySet::find(std::string const& name) const {
  auto const property = std::find_if(properties_.begin(), properties_.end(),
                                     [&](Property const* p) { return p->getName() == name; });
  return property != properties_.end() ? *property : nullptr;
}

IPropertySet::~IPropertySet() = default;

PropertySetBase::PropertySetBase(ObjectBase::Private* record) : ObjectBase(record) {
  adopt(record);
}

PropertySetBase::~PropertySetBase() = default;

void PropertySetBase::declareProperties(std::initializer_list<Property*> list) {
  properties(ownRecord()) = PropertySet(list);
}

Property& PropertySetBase::getProperty(std::string const& name) {
  return require(properties(lendRecord()), name, getClassName());
}

Property const& PropertySetBase::getProperty(std::string const& name) const {
  return require(properties(record()), name, getClassName());
}

Property* PropertySetBase::findProperty(std::string const& name) {
  return properties(lendRecord()).find(name);
}

bool PropertySetBase::hasProperty(std::string const& name) const {
  return properties(record()).find(name) != nullptr;
}

IPropertySet* PropertySetBase::addProperty(Property* property) {
  std::unique_ptr<Property> owned(property); // until the set has it: a null object throws
  PropertySet& set = properties(ownRecord());
  set.add(owned.release());
  return this;
}

IPropertySet* PropertySetBase::setDefault() {
  for (Property* property : properties(ownRecord()).properties()) {
    property->setDefault();
  }
  return this;
}

std::vector<std::string> PropertySetBase::getPropertyNames() const {
  std::vector<std::string> names;
  for (Property const* property : properties(record()).properties()) {
    names.push_back(property->getName());
  }
  return names;
}

std::vector<Property*> const& PropertySetBase::getProperties() const {
  return properties(record()).properties();
}

std::vector<Property*> const& PropertySetBase::getProperties() {
  // The pointers allow changes, so this record must stay this object's alone from now on.
  return properties(lendRecord()).properties();
}

void PropertySetBase::read(nlohmann::json const& json) {
  if (!json.is_object()) {
    throw error(std::string("Properties are a JSON object, not ") + json.type_name(), getClassName().c_str());
  }
  PropertySet candidate = properties(record());
  for (Property* property : candidate.properties()) {
    auto const member = json.find(property->getName());
    if (member != json.end()) {
      property->read(*member);
    }
  }
  // Values are assigned rather than the set replaced: references to properties stay good.
  PropertySet& set = properties(ownRecord());
  for (Property const* property : candidate.properties()) {
    *set.find(property->getName()) = property->getValue();
  }
}

void PropertySetBase::write(nlohmann::json& json) const {
  json = nlohmann::json::object();
  for (Property const* property : properties(record()).properties()) {
    property->write(json[property->getName()]);
  }
}

std::vector<std::string> const& PropertySetBase::getInterfaces() const {
  static std::vector<std::string> const names{"vorn::IObject", "vorn::IJsonSerializable"};
  return names;
}

std::string PropertySetBase::toString() const {
  std::string text = getClassName() + " {";
  char const* separator = "";
  for (Property const* property : properties(record()).properties()) {
    text += separator + property->toString();
    separator = ", ";
  }
  return text + "}";
}

} // namespace vorn
