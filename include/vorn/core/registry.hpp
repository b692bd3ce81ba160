// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vorn/core/exception.hpp>

namespace vorn {

/// Makes objects of one interface by the names of their classes.
///
/// A name is the fully qualified class name ("vorn::mv::pc::DzFilter"), its last piece ("DzFilter"), or that
/// without the ending "Filter" ("Dz").
template <class Interface>
class Registry {
public:
  /// A registry of some classes, in this order.
  template <class... Classes>
  static Registry of() {
    Registry registry;
    (registry.add<Classes>(), ...);
    return registry;
  }

  /// Adds a class under the name that its objects give themselves.
  template <class Class>
  void add() {
    entries_.push_back({Class().getClassName(), [] { return std::unique_ptr<Interface>(new Class); }});
  }

  /// @throws Exception when no class of this name was added
  std::unique_ptr<Interface> create(std::string const& name) const {
    auto const entry = std::find_if(entries_.begin(), entries_.end(), [&](Entry const& candidate) {
      std::string const shortName = candidate.className.substr(candidate.className.rfind(':') + 1);
      return name == candidate.className || name == shortName || name + "Filter" == shortName;
    });
    if (entry == entries_.end()) {
      throw Exception("Unknown class \"" + name + "\"; known are " + joinedNames(), nullptr, 0, "create");
    }
    return entry->make();
  }

  /// The fully qualified names, in the order of `add`.
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (auto const& entry : entries_) {
      names.push_back(entry.className);
    }
    return names;
  }

private:
  struct Entry {
    std::string className;
    std::function<std::unique_ptr<Interface>()> make;
  };

  std::string joinedNames() const {
    std::string text;
    for (auto const& entry : entries_) {
      text += (text.empty() ? "" : ", ") + entry.className;
    }
    return text;
  }

  std::vector<Entry> entries_;
};

} // namespace vorn
