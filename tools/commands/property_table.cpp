// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/property_table.hpp"

#include <algorithm>
#include <iomanip>
#include <string>

namespace vorn::tools {

namespace {

char const* typeName(Property const& property) {
  switch (property.getDefault().type()) {
  case Variant::Type::Int:
  case Variant::Type::Int64:
    return "int";
  case Variant::Type::Double:
    return "double";
  case Variant::Type::Bool:
    return "bool";
  case Variant::Type::Enum:
    return "enum";
  case Variant::Type::String:
    return "text";
  }
  return "";
}

std::string allowedValues(Property const& property) {
  if (property.hasRange()) {
    return "[" + property.getMin().toString() + ", " + property.getMax().toString() + "]";
  }
  switch (property.getDefault().type()) {
  case Variant::Type::Bool:
    return "true, false";
  case Variant::Type::Enum: {
    std::string items;
    for (std::string const& item : property.getDefault().toEnum().getItems()) {
      items += (items.empty() ? "" : ", ") + item;
    }
    return items;
  }
  default:
    return "";
  }
}

} // namespace

nlohmann::json printProperties(std::ostream& out, IPropertySet const& object) {
  out << object.getClassName() << '\n';
  int nameWidth = 0;
  int defaultWidth = 0;
  auto const widen = [](int& width, std::string const& text) {
    constexpr int gap = 2;
    width = std::max(width, static_cast<int>(text.size()) + gap);
  };
  for (Property const* property : object.getProperties()) {
    widen(nameWidth, property->getName());
    widen(defaultWidth, property->getDefault().toString());
  }
  nlohmann::json table = nlohmann::json::object();
  for (Property const* property : object.getProperties()) {
    constexpr int typeWidth = 8;
    out << "  " << std::left << std::setw(nameWidth) << property->getName() << std::setw(typeWidth)
        << typeName(*property) << std::setw(defaultWidth) << property->getDefault().toString()
        << allowedValues(*property) << '\n';
    table[property->getName()] = {{"type", typeName(*property)},
                                  {"default", property->getDefault().toString()},
                                  {"allowed", allowedValues(*property)}};
  }
  return table;
}

} // namespace vorn::tools
