// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "support/test_filter.hpp"

namespace vorn {
namespace {

using test::Shade;
using test::TestFilter;

/// The message of the exception that `action` throws; empty when it throws none.
template <class Action>
std::string messageOf(Action const& action) {
  try {
    action();
  } catch (Exception const& e) {
    return e.message();
  }
  return {};
}

TEST(Property, ConvertsToItsDeclaredType) {
  TestFilter filter;
  filter["Radius"] = 4.0;
  EXPECT_EQ(filter["Radius"].getValue(), Variant(4));
  filter["Radius"] = "7";
  EXPECT_EQ(filter["Radius"].getValue(), Variant(7));
  filter["Sigma"] = 3;
  EXPECT_EQ(filter["Sigma"].getValue(), Variant(3.0));
  filter["Sigma"] = 2.5F;
  EXPECT_EQ(filter["Sigma"].getValue(), Variant(2.5));
  filter["Inverted"] = 1;
  EXPECT_EQ(filter["Inverted"].getValue(), Variant(true));
  filter["Label"] = "true";
  EXPECT_EQ(filter["Label"].getValue(), Variant("true"));
}

TEST(Property, EnumTakesItemIndexOrName) {
  TestFilter filter;
  filter["Shade"] = Shade(Shade::Bright);
  EXPECT_EQ(filter["Shade"].getValue().toString(), "Bright");
  filter["Shade"] = 0;
  EXPECT_EQ(filter["Shade"].getValue().toString(), "Dark");
  filter["Shade"] = "Medium";
  IEnum const& item = filter["Shade"];
  EXPECT_EQ(item.getIndex(), Shade::Medium);
  EXPECT_EQ(item.getItems(), (std::vector<std::string>{"Dark", "Medium", "Bright"}));
}

TEST(Property, RefusesWhatItCannotHoldAndKeepsItsValue) {
  TestFilter filter;
  double const nan = std::numeric_limits<double>::quiet_NaN();
  double const inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(messageOf([&] { filter["Radius"] = 33; }), "Property \"Radius\": 33 is not in [0, 32]");
  EXPECT_NE(messageOf([&] { filter["Radius"] = 1.5; }), "");
  EXPECT_NE(messageOf([&] { filter["Radius"] = nan; }), "");
  EXPECT_NE(messageOf([&] { filter["Radius"] = inf; }), "");
  EXPECT_NE(messageOf([&] { filter["Radius"] = std::int64_t{1} << 40; }), "");
  EXPECT_NE(messageOf([&] { filter["Radius"] = "wide"; }).find("\"Radius\""), std::string::npos);
  for (char const* wrapping : {"4294967297", "18446744073709551617", "18446744073709551615"}) {
    nlohmann::json const number = nlohmann::json::parse(wrapping);
    EXPECT_NE(messageOf([&] { filter["Radius"].read(number); }), "") << wrapping;
    Shade shade(Shade::Medium);
    EXPECT_NE(messageOf([&] { shade.read(nlohmann::json(4294967296)); }), "");
    Property unranged("Count", std::int64_t{3});
    EXPECT_EQ(messageOf([&] { unranged.read(number); }) == "", number == 4294967297) << wrapping;
  }
  EXPECT_EQ(filter["Radius"].getValue(), Variant(1));
  EXPECT_NE(messageOf([&] { filter["Sigma"] = nan; }), "");
  EXPECT_NE(messageOf([&] { filter["Sigma"] = 10.000001; }), "");
  EXPECT_EQ(filter["Sigma"].getValue(), Variant(1.5));
  EXPECT_NE(messageOf([&] { filter["Inverted"] = 2; }), "");
  EXPECT_NE(messageOf([&] { filter["Shade"] = 3; }).find("\"Shade\""), std::string::npos);
  EXPECT_NE(messageOf([&] { filter["Shade"] = "Pink"; }).find("Dark, Medium, Bright"), std::string::npos);
  EXPECT_EQ(filter["Shade"].getValue().toString(), "Medium");
  EXPECT_THROW(Property("Bad", 5, 0, 4), Exception);
}

TEST(Property, TakesTheValueOfAnotherAndKeepsItsName) {
  TestFilter filter;
  TestFilter other;
  other["Radius"] = 9;
  filter["Radius"] = other["Radius"];
  EXPECT_EQ(filter["Radius"].getValue(), Variant(9));
  filter["Sigma"] = other["Radius"];
  EXPECT_EQ(filter["Sigma"].getValue(), Variant(9.0));
  EXPECT_EQ(filter["Sigma"].getDefault(), Variant(1.5));
  EXPECT_EQ(filter.getPropertyNames(), other.getPropertyNames());
  other["Radius"] = 32;
  EXPECT_NE(messageOf([&] { filter["Sigma"] = other["Radius"]; }), "");
}

TEST(Property, GivesItsValueInTheTypeThatItHas) {
  Property pitch("Pitch", 12.7);
  Property const count("Count", 5);
  double const asDouble = pitch;
  float const asFloat = pitch;
  int const asInt = pitch;
  std::size_t const asSize = count;
  EXPECT_EQ(asDouble, 12.7);
  EXPECT_EQ(asFloat, 12.7F);
  EXPECT_EQ(asInt, 12);
  EXPECT_EQ(asSize, 5U);
  EXPECT_EQ(pitch.get<double>(), 12.7);
  EXPECT_EQ(pitch.get<std::string>(), "12.7");
  EXPECT_TRUE(count.get<bool>());
  pitch = -300;
  EXPECT_EQ(pitch.get<std::uint8_t>(), 0);
  EXPECT_EQ(pitch.get<std::int8_t>(), -128);
  EXPECT_EQ(pitch.get<std::uint64_t>(), 0U);
  EXPECT_EQ(Property("Far", std::int64_t{1} << 40).get<unsigned>(), std::numeric_limits<unsigned>::max());
}

TEST(Property, CountsWithTheValueThatItHas) {
  Property const pitch("Pitch", 12.7);
  Property const count("Count", 5);
  EXPECT_EQ(pitch * 2, 12.7 * 2);
  EXPECT_EQ(2 * pitch, 12.7 * 2);
  EXPECT_EQ(pitch - count, 12.7 - 5);
  EXPECT_EQ(-pitch + 1U, 1 - 12.7);
  EXPECT_TRUE(pitch > 12.5);
  EXPECT_TRUE(pitch > 12);
  EXPECT_FALSE(pitch == 12);
  EXPECT_TRUE(12.7 == pitch && pitch != count && count <= pitch && 13 >= pitch && count < 5.5);
  double sum = 0.5;
  sum += pitch;
  sum *= count;
  EXPECT_EQ(sum, (0.5 + 12.7) * 5);
  // Whole numbers go on as they do in C++.
  EXPECT_EQ(count / 2, 2);
  EXPECT_EQ(-7 / count, -1);
  EXPECT_EQ(count / 2.0, 2.5);
  EXPECT_EQ(count % 3, 2);
  EXPECT_EQ(count << 1, 10);
  int kernel = 1;
  kernel += count;
  EXPECT_EQ(kernel, 6);
  std::ostringstream text;
  text << pitch;
  EXPECT_EQ(text.str(), "12.7");
}

/// Another enum with as many items.
struct Tone : EnumBase<Tone> {
  enum Item { A, B, C };
  static constexpr char const* className = "Tone";
  static constexpr char const* itemList = "A, B, C";
  Tone(Item item = A) : EnumBase(item) {}
};

TEST(Property, GivesAnEnumOfItsOwnClassOnly) {
  TestFilter filter;
  filter["Shade"] = Shade::Bright;
  EXPECT_EQ(filter["Shade"].get<Shade>(), Shade(Shade::Bright));
  EXPECT_EQ(filter["Shade"].get<int>(), Shade::Bright);
  EXPECT_TRUE(filter["Shade"] == Shade::Bright);
  EXPECT_NE(messageOf([&] { filter["Shade"].get<Tone>(); }).find("vorn::test::Shade"), std::string::npos);
  EXPECT_THROW(filter["Sigma"].get<Shade>(), Exception);
}

TEST(Variant, ClampsDoublesToTheWholeNumbersOf64Bits) {
  EXPECT_EQ(Variant(9223372036854775808.0).toInt64(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Variant(9223372036854774784.0).toInt64(), 9223372036854774784);
  EXPECT_EQ(Variant(-9223372036854775808.0).toInt64(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Variant(-1e300).toInt64(), std::numeric_limits<std::int64_t>::min());
}

TEST(Enum, ReadsAnItemOrAnIndexAndWritesTheItem) {
  Shade shade;
  shade.read("Bright");
  EXPECT_EQ(shade.getIndex(), Shade::Bright);
  shade.read(1);
  EXPECT_EQ(shade.getIndex(), Shade::Medium);
  nlohmann::json json;
  shade.write(json);
  EXPECT_EQ(json, "Medium");
  EXPECT_THROW(shade.read(3), Exception);
  EXPECT_THROW(shade.read("Mediun"), Exception);
  EXPECT_EQ(shade.getIndex(), Shade::Medium);
}

TEST(Property, BoundsAreAllowed) {
  TestFilter filter;
  for (int const bound : {filter["Radius"].getMin().toInt(), filter["Radius"].getMax().toInt()}) {
    filter["Radius"] = bound;
    EXPECT_EQ(static_cast<int>(filter["Radius"]), bound);
  }
  EXPECT_FALSE(filter["Offset"].hasRange());
  EXPECT_THROW(filter["Offset"].getMin(), Exception);
}

TEST(PropertySet, FreshAndResetObjectsAreAtTheirDefaults) {
  TestFilter filter;
  filter["Radius"] = 9;
  filter["Shade"] = Shade::Bright;
  filter.setDefault();
  for (Property const* property : filter.getProperties()) {
    EXPECT_EQ(property->getValue(), property->getDefault()) << property->getName();
  }
  EXPECT_EQ(filter.getPropertyNames(),
            (std::vector<std::string>{"Radius", "Sigma", "Inverted", "Shade", "Offset", "Label"}));
}

TEST(PropertySet, ListsOfAConstObjectChangeNothing) {
  TestFilter filter;
  filter.setDefault();
  TestFilter const copy = filter;
  TestFilter const another = copy;
  // Copies still share what they hold.
  EXPECT_EQ(&copy.getProperties(), &another.getProperties());
  filter.getProperties()[0]->operator=(9);
  EXPECT_EQ(filter["Radius"].getValue(), Variant(9));
  EXPECT_EQ(copy["Radius"].getValue(), Variant(1));
  std::vector<Property*> const& lent = filter.getProperties();
  TestFilter const later = filter;
  *lent[0] = 4;
  EXPECT_EQ(later["Radius"].getValue(), Variant(9));
}

TEST(PropertySet, UnknownNamesAreFoundOut) {
  TestFilter filter;
  EXPECT_THROW(filter["Raduis"], Exception);
  EXPECT_EQ(filter.findProperty("Raduis"), nullptr);
  EXPECT_FALSE(filter.hasProperty("Raduis"));
}

TEST(PropertySet, TakesNewPropertiesOnly) {
  TestFilter filter;
  EXPECT_THROW(filter.addProperty(new Property("Radius", 1)), Exception);
  EXPECT_THROW(filter.addProperty(nullptr), Exception);
  EXPECT_THROW(PropertySet({new Property("Radius", 1), nullptr}), Exception);
  EXPECT_EQ(static_cast<int>(filter.addProperty(new Property("Count", 2))->getProperty("Count")), 2);
}

TEST(PropertySet, JsonRoundTripRestoresEveryValue) {
  TestFilter filter;
  filter["Sigma"] = 0.1 + 0.2; // needs all its digits
  filter["Shade"] = Shade::Dark;
  filter["Inverted"] = true;
  filter["Label"] = "x";
  nlohmann::json json;
  filter.write(json);
  EXPECT_EQ(json["Shade"], "Dark");
  TestFilter copy;
  copy.read(nlohmann::json::parse(json.dump()));
  for (std::string const& name : filter.getPropertyNames()) {
    EXPECT_EQ(copy[name].getValue(), filter[name].getValue()) << name;
  }
}

TEST(Property, NumbersSurviveTextToTheBit) {
  using Limits = std::numeric_limits<double>;
  Property property("Offset", 0.0);
  for (double const value : {Limits::infinity(), -Limits::infinity(), Limits::max(), Limits::denorm_min(),
                             0.1 + 0.2, 1.0 + Limits::epsilon(), 9007199254740993.0, -0.0}) {
    property = value;
    nlohmann::json json;
    property.write(json);
    Property copy("Offset", 0.0);
    copy.read(nlohmann::json::parse(json.dump()));
    double const back = copy.getValue().toDouble();
    EXPECT_EQ(back, value);
    EXPECT_EQ(std::signbit(back), std::signbit(value));
  }
  property = Limits::quiet_NaN();
  nlohmann::json json;
  property.write(json);
  property = 1.0;
  property.read(nlohmann::json::parse(json.dump()));
  EXPECT_TRUE(std::isnan(property.getValue().toDouble()));
}

TEST(PropertySet, RefusedJsonChangesNothing) {
  TestFilter filter;
  for (char const* text : {R"({"Radius": 5, "Sigma": 11})", R"({"Radius": 5, "Shade": "Pink"})",
                           R"({"Radius": 5, "Inverted": []})", R"([5])", R"({"Radius": null})"}) {
    EXPECT_THROW(filter.read(nlohmann::json::parse(text)), Exception) << text;
    EXPECT_EQ(static_cast<int>(filter["Radius"]), 1) << text;
  }
  filter.read(nlohmann::json::parse(R"({"Unknown": {"a": 1}, "Shade": 2})"));
  EXPECT_EQ(filter["Shade"].getValue().toString(), "Bright");
}

TEST(Variant, ReadersConvertFromWhateverIsHeld) {
  EXPECT_EQ(Variant(2.9).toInt(), 2);
  EXPECT_EQ(Variant(1e300).toInt(), std::numeric_limits<int>::max());
  EXPECT_EQ(Variant(-1e300).toInt64(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Variant("9007199254740993").toInt64(), 9007199254740993);
  EXPECT_EQ(Variant(true).toDouble(), 1.0);
  EXPECT_FALSE(Variant("false").toBool());
  EXPECT_EQ(Variant(Shade(Shade::Bright)).toFloat(), 2.0F);
  EXPECT_EQ(Variant(0.1).toString(), "0.1");
  EXPECT_THROW(Variant("1.5mm").toDouble(), Exception);
  EXPECT_NE(Variant(1), Variant(true));
}

} // namespace
} // namespace vorn
