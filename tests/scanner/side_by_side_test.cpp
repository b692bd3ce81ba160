// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/side_by_side.hpp"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

namespace vorn::mv {
namespace {

class SideBySide : public testing::TestWithParam<int> {
protected:
  SideBySide() { cv::setNumThreads(GetParam()); }
  ~SideBySide() override { cv::setNumThreads(before_); }

private:
  int const before_ = cv::getNumThreads();
};

TEST_P(SideBySide, EveryPieceIsDoneOnce) {
  for (std::size_t const count : {0U, 1U, 2U, 37U}) {
    std::vector<std::atomic<int>> done(count);
    forEachSideBySide(count, [&](std::size_t i) { ++done[i]; });
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(done[i], 1) << i << " of " << count;
    }
  }
}

TEST_P(SideBySide, TheFailureOfTheLeastPieceReachesTheCallerAndNoneIsBegunAfterIt) {
  constexpr std::size_t count = 64;
  constexpr std::size_t failing = 5;
  std::vector<std::atomic<int>> begun(count);
  try {
    forEachSideBySide(count, [&](std::size_t i) {
      ++begun[i];
      if (i >= failing) {
        throw std::runtime_error(std::to_string(i));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    ADD_FAILURE() << "nothing was thrown";
  } catch (std::runtime_error const& e) {
    EXPECT_EQ(e.what(), std::to_string(failing));
  }
  int late = 0;
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_TRUE(begun[i] == 1 || i > failing) << i;
    late += i > failing ? begun[i].load() : 0;
  }
  // A thread that had begun or met a later piece before: alone, none.
  EXPECT_LT(late, GetParam() == 1 ? 1 : static_cast<int>(count - failing) / 2);
}

INSTANTIATE_TEST_SUITE_P(Threads, SideBySide, testing::Values(1, 2, 4));

} // namespace
} // namespace vorn::mv
