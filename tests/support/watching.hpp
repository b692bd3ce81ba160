// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/core/observer.hpp>

namespace vorn::test {

/// Keeps what a job tells, and stops it at a question of choice.
class Watching : public Observer {
public:
  /// @param questions how many are answered by going on; all when negative
  explicit Watching(int questions = -1) : left_(questions) {}

  bool onProgress(std::string_view stage, double place) override {
    EXPECT_GE(place, fraction) << stage;
    EXPECT_LE(place, 1.0) << stage;
    fraction = place;
    if (stages.empty() || stages.back() != stage) {
      stages.emplace_back(stage);
    }
    ++asked;
    return left_ < 0 || left_-- > 0;
  }

  std::vector<std::string> stages; ///< in their order
  double fraction = 0.0;           ///< the last one
  int asked = 0;

private:
  int left_;
};

/// Runs a job again and again, stopped at its first question, its second and so on until it ends, and calls
/// `check` after every stop. Returns how often it was stopped.
template <class Job, class Check>
int stopEverywhere(Job const& job, Check const& check) {
  for (int questions = 0;; ++questions) {
    Watching observer(questions);
    try {
      job(observer);
      return questions;
    } catch (Cancelled const&) {
      EXPECT_EQ(observer.asked, questions + 1) << "asked again after a stop";
    }
    check();
  }
}

} // namespace vorn::test
