// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/exception.hpp>
#include <vorn/core/filter_chain.hpp>

namespace {

using vorn::Property;

/// A filter on whole numbers: adds "Offset".
class OffsetFilter : public vorn::AlgorithmBase {
public:
  OffsetFilter() : AlgorithmBase(new vorn::PropertySetBase::Private) {
    declareProperties({new Property("Offset", 1, 0, 9), new Property("Twice", false)});
  }
  std::string const& getClassName() const override {
    static std::string const name = "toy::OffsetFilter";
    return name;
  }
};

vorn::Registry<OffsetFilter> registry() {
  vorn::Registry<OffsetFilter> registry;
  registry.add<OffsetFilter>();
  return registry;
}

std::string messageOfChain(char const* json) {
  try {
    vorn::readFilterChain(nlohmann::json::parse(json), registry());
  } catch (vorn::Exception const& e) {
    return e.message();
  }
  return "accepted";
}

std::string messageOfText(char const* text) {
  try {
    vorn::parseFilter(text, registry());
  } catch (vorn::Exception const& e) {
    return e.message();
  }
  return "accepted";
}

TEST(FilterChain, ReadsBackWhatItWrites) {
  vorn::FilterChain<OffsetFilter> chain = vorn::readFilterChain(
      nlohmann::json::parse(
          R"([{"class": "Offset", "properties": {"Offset": 3}}, {"class": "toy::OffsetFilter"}])"),
      registry());
  nlohmann::json json = "overwritten";
  vorn::writeFilterChain(chain, json);
  EXPECT_EQ(json, nlohmann::json::parse(R"([
    {"class": "toy::OffsetFilter", "properties": {"Offset": 3, "Twice": false}},
    {"class": "toy::OffsetFilter", "properties": {"Offset": 1, "Twice": false}}])"));

  nlohmann::json again;
  vorn::writeFilterChain(vorn::readFilterChain(json, registry()), again);
  EXPECT_EQ(again, json);
}

TEST(FilterChain, EmptyChainIsAnEmptyArray) {
  nlohmann::json json;
  vorn::writeFilterChain(vorn::FilterChain<OffsetFilter>(), json);
  EXPECT_EQ(json, nlohmann::json::array());
  EXPECT_TRUE(vorn::readFilterChain(json, registry()).empty());
}

TEST(FilterChain, NamesTheFilterThatIsWrong) {
  for (char const* second :
       {R"({"class": "Ofset"})", R"({"class": "Offset", "properties": {"Ofset": 3}})",
        R"({"class": "Offset", "properties": {"Offset": 10}})", R"({"class": "Offset", "properties": [3]})",
        R"({"class": "Offset", "property": {}})", R"({"properties": {}})", R"({"class": 3})",
        R"("Offset")"}) {
    std::string const message =
        messageOfChain((R"([{"class": "Offset"}, )" + std::string(second) + "]").c_str());
    EXPECT_EQ(message.rfind("Filter 2 of the chain: ", 0), 0U) << second << ": " << message;
  }
  EXPECT_EQ(messageOfChain("{}"), "A filter chain is a JSON array, not object");
}

TEST(FilterText, SetsPropertiesByName) {
  EXPECT_EQ(int(vorn::parseFilter("Offset", registry())->getProperty("Offset")), 1);
  for (char const* text : {"Offset:Offset=3,Twice=true", "OffsetFilter:Twice=1,Offset=3",
                           "toy::OffsetFilter:Offset=3,Twice=true"}) {
    std::unique_ptr<OffsetFilter> const filter = vorn::parseFilter(text, registry());
    EXPECT_EQ(int(filter->getProperty("Offset")), 3) << text;
    EXPECT_TRUE(bool(filter->getProperty("Twice"))) << text;
  }
  EXPECT_EQ(vorn::parseFilter("toy::OffsetFilter", registry())->getClassName(), "toy::OffsetFilter");
}

TEST(FilterText, RefusesWhatItDoesNotUnderstand) {
  for (char const* text : {"", "Ofset", "Offset=3", "Offset:Offset", "Offset:Offset=3,", "Offset:Ofset=3",
                           "Offset:Offset=10", "Offset:Offset=many", "Offset:"}) {
    EXPECT_NE(messageOfText(text), "accepted") << text;
  }
}

} // namespace
