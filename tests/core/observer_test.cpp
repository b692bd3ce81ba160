// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/observer.hpp>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/progress.hpp"

namespace vorn {

namespace {

/// Remembers what it was told and says stop at a call of one's choice.
struct Recorder : Observer {
  explicit Recorder(std::size_t callsAllowed = 1000) : allowed(callsAllowed) {}
  bool onProgress(std::string_view stage, double fraction) override {
    calls.emplace_back(stage, fraction);
    return calls.size() < allowed;
  }
  std::size_t allowed;
  std::vector<std::pair<std::string, double>> calls;
};

} // namespace

TEST(Progress, PartsOfPartsAreFractionsOfTheWholeAndNeverFall) {
  Recorder recorder;
  Progress const whole(&recorder);
  Progress const second = whole.part(0.5, 1.0);
  second.at("a", 0.5);
  second.part(0.0, 0.25).at("b", 1.0);
  whole.at("c", 7.0);
  std::vector<std::pair<std::string, double>> const expected = {{"a", 0.75}, {"b", 0.75}, {"c", 1.0}};
  EXPECT_EQ(recorder.calls, expected);
}

TEST(Progress, RowsAreEachDoneOnceWhateverTheBand) {
  for (int const band : {1, 3, 7, 100}) {
    Recorder recorder;
    std::vector<int> visits(7, 0);
    parallelRows(7, band, Progress(&recorder), "rows", [&](int first, int end) {
      for (int row = first; row < end; ++row) {
        ++visits[static_cast<std::size_t>(row)];
      }
    });
    EXPECT_EQ(visits, std::vector<int>(7, 1)) << band;
    EXPECT_EQ(recorder.calls.size(), static_cast<std::size_t>((7 + band - 1) / band)) << band;
  }
}

TEST(Progress, AStopReachesEveryPartAndIsNotAskedAgain) {
  Recorder recorder(2);
  Progress const whole(&recorder);
  Progress const other = whole.part(0.2, 0.4);
  whole.at("a", 0.1);
  EXPECT_THROW(whole.at("b", 0.2), Cancelled);
  EXPECT_THROW(other.at("c", 0.2), Cancelled);
  EXPECT_EQ(recorder.calls.size(), 2U);
}

TEST(Progress, WhatTheObserverThrowsReachesTheCallerAndStopsTheRest) {
  struct Thrower : Observer {
    bool onProgress(std::string_view /*stage*/, double /*fraction*/) override {
      throw std::runtime_error("no");
    }
  } thrower;
  Progress const whole(&thrower);
  EXPECT_THROW(whole.at("a", 0.1), std::runtime_error);
  EXPECT_THROW(whole.at("b", 0.2), Cancelled);
}

TEST(Progress, NobodyWatchingCostsNothingAndStopsNothing) {
  Progress const none(nullptr);
  EXPECT_FALSE(none.isWatched());
  EXPECT_NO_THROW(none.part(0.1, 0.2).at("a", 0.5));
}

} // namespace vorn
