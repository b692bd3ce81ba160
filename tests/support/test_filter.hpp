// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/enum.hpp>

namespace vorn::test {

class Shade : public EnumBase<Shade> {
public:
  enum Item { Dark, Medium, Bright };
  static constexpr char const* className = "vorn::test::Shade";
  // Irregular blanks on purpose.
  static constexpr char const* itemList = "Dark,Medium ,  Bright";
  Shade(Item item = Dark) : EnumBase(item) {}
};

/// An algorithm as a host would write one, with a property of every type.
class TestFilter : public AlgorithmBase {
public:
  TestFilter() : AlgorithmBase(new PropertySetBase::Private) {
    declareProperties({new Property("Radius", 1, 0, 32), new Property("Sigma", 1.5, 0.0, 10.0),
                       new Property("Inverted", false), new Property("Shade", Shade(Shade::Medium)),
                       new Property("Offset", 0.0), new Property("Label", "none")});
  }

  std::string const& getClassName() const override {
    static std::string const name = "vorn::test::TestFilter";
    return name;
  }
};

} // namespace vorn::test
