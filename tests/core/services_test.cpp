// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/registry.hpp>
#include <vorn/core/system.hpp>
#include <vorn/core/text.hpp>
#include <vorn/core/timer.hpp>

#include "support/test_filter.hpp"

namespace vorn {
namespace {

TEST(Exception, SaysItsMessageFirstAndThenItsContext) {
  Exception const e("Insufficient calibration data", nullptr, 0, "calib");
  EXPECT_STREQ(e.what(), "Insufficient calibration data (calib)");
  EXPECT_EQ(e.function(), "");
  EXPECT_EQ(e.file(), "calib");
  EXPECT_STREQ(Exception("Failed", "run", 12, "a.cpp").what(), "Failed (run, a.cpp:12)");
}

TEST(System, KeepsValuesAndFallsBack) {
  EXPECT_EQ(System::get("TestKey", Variant(4)), Variant(4));
  System::set("TestKey", Variant(2.5));
  EXPECT_EQ(System::get("TestKey", Variant(4)), Variant(2.5));
}

TEST(System, LogReachesTheSinkMessageByMessage) {
  std::vector<std::string> messages;
  System::setLogSink([&](std::string const& text) { messages.push_back(text); });
  auto const write = [] {
    for (int i = 0; i < 100; ++i) {
      System::log("line\n");
    }
  };
  std::thread other(write);
  write();
  other.join();
  System::setLogSink({});
  EXPECT_EQ(messages, std::vector<std::string>(200, "line\n"));
}

TEST(System, MessagesGoToStandardOutputOrTheSink) {
  testing::internal::CaptureStdout();
  System::message("first\n");
  std::string sunk;
  System::setMessageSink([&](std::string const& text) { sunk += text; });
  System::message("second\n");
  System::log(""); // the log goes its own way
  System::setMessageSink({});
  System::message("third\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "first\nthird\n");
  EXPECT_EQ(sunk, "second\n");
}

TEST(Text, SplitsAndTrims) {
  EXPECT_EQ(removeSpaces(" a b\tc ", true), "abc");
  EXPECT_EQ(removeSpaces(" a b ", false), "a b");
  EXPECT_EQ(removeSpaces("  ", false), "");
  EXPECT_EQ(split("a,,b", ','), (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(split("", ','), std::vector<std::string>{""});
  EXPECT_EQ(toString(nlohmann::json("a b")), "a b");
  EXPECT_EQ(toString(nlohmann::json::parse(R"({"a": 1})")), R"({"a":1})");
}

TEST(Timer, MeasuresMilliseconds) {
  Timer timer;
  timer.tic();
  constexpr int pause = 20;
  std::this_thread::sleep_for(std::chrono::milliseconds(pause));
  EXPECT_GE(timer.toc(), pause);
  std::ostringstream text;
  text << timer;
  EXPECT_NE(text.str().find(" ms"), std::string::npos);
}

TEST(Registry, MakesObjectsByFullAndShortName) {
  Registry<AlgorithmBase> registry;
  registry.add<test::TestFilter>();
  EXPECT_EQ(registry.create("vorn::test::TestFilter")->getClassName(), "vorn::test::TestFilter");
  EXPECT_EQ(registry.create("TestFilter")->getClassName(), "vorn::test::TestFilter");
  EXPECT_THROW(registry.create("Filter"), Exception);
}

} // namespace
} // namespace vorn
