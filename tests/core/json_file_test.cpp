// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/json_file.hpp>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "support/temporary_folder.hpp"
#include "support/test_filter.hpp"

namespace vorn {
namespace {

using test::TestFilter;

/// The text of what `action` throws.
template <class Action>
std::string refusal(Action const& action) {
  try {
    action();
  } catch (Exception const& e) {
    return e.what();
  }
  return {};
}

bool contains(std::string const& text, std::string const& part) {
  return text.find(part) != std::string::npos;
}

class JsonFile : public testing::Test {
protected:
  std::string path(char const* name) const { return (folder_ / name).string(); }

  void writeText(char const* name, std::string const& text) const { std::ofstream(path(name)) << text; }

  test::TemporaryFolder folder_;
};

TEST_F(JsonFile, BringsAnObjectBack) {
  TestFilter filter;
  filter["Radius"] = 7;
  filter["Sigma"] = 0.1 + 0.2;
  save(path("filter.json"), filter);
  auto const loaded = load<TestFilter>(path("filter.json"));
  EXPECT_EQ(loaded["Radius"].getValue(), Variant(7));
  EXPECT_EQ(loaded["Sigma"].getValue(), Variant(0.1 + 0.2));
  EXPECT_EQ(readJsonFile(path("filter.json"))["Radius"], 7);
}

TEST_F(JsonFile, RefusalsNameTheFileAndWhatIsWrong) {
  std::string const missing = refusal([&] { static_cast<void>(load<TestFilter>(path("no.json"))); });
  EXPECT_TRUE(contains(missing, "There is no file " + path("no.json"))) << missing;
  writeText("half.json", "{\"Radius\": ");
  std::string const half = refusal([&] { static_cast<void>(load<TestFilter>(path("half.json"))); });
  EXPECT_TRUE(contains(half, path("half.json") + " is not JSON") && contains(half, "line 1")) << half;
  writeText("huge.json", R"({"Sigma": 1e999})");
  std::string const huge = refusal([&] { static_cast<void>(load<TestFilter>(path("huge.json"))); });
  EXPECT_TRUE(contains(huge, path("huge.json"))) << huge;
  writeText("wide.json", R"({"Sigma": 3, "Radius": 33})");
  TestFilter filter;
  std::string const wide = refusal([&] { load(path("wide.json"), filter); });
  EXPECT_TRUE(contains(wide, path("wide.json")) && contains(wide, "\"Radius\"") && contains(wide, "33"))
      << wide;
  EXPECT_EQ(filter["Sigma"].getValue(), Variant(1.5));
  std::string const folder = refusal([&] { load(folder_.path().string(), filter); });
  EXPECT_TRUE(contains(folder, folder_.path().string())) << folder;
}

TEST_F(JsonFile, WhatHasNoEndIsRefusedBeforeItFillsTheMemory) {
  std::string const endless = refusal([] { static_cast<void>(readJsonFile("/dev/zero")); });
  EXPECT_TRUE(contains(endless, "/dev/zero brings more than 128 MB")) << endless;
}

/// An object that cannot be written.
struct Broken : IJsonSerializable {
  void read(nlohmann::json const& /*json*/) override {}
  void write(nlohmann::json& json) const override { json["Name"] = "\xff"; } // no UTF-8
};

TEST_F(JsonFile, AFailedSaveLeavesTheOldFile) {
  save(path("filter.json"), TestFilter());
  std::string const text = refusal([&] { save(path("filter.json"), Broken()); });
  EXPECT_TRUE(contains(text, path("filter.json"))) << text;
  EXPECT_NO_THROW(static_cast<void>(load<TestFilter>(path("filter.json"))));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
  EXPECT_TRUE(contains(refusal([&] { save(path("none/f.json"), TestFilter()); }), path("none/f.json")));
}

} // namespace
} // namespace vorn
