// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <iostream>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include "support/seed.hpp"
#include "support/thread_backend.hpp"

namespace {

/// Gives every random source the same start before each test and names it when the test fails.
class SeedListener : public testing::EmptyTestEventListener {
  void OnTestStart(testing::TestInfo const& /*info*/) override {
    std::srand(vorn::test::seed());
    cv::theRNG().state = vorn::test::seed();
  }

  void OnTestEnd(testing::TestInfo const& info) override {
    if (info.result()->Failed()) {
      std::cout << "random seed: " << vorn::test::seed() << " (set VORN_TEST_SEED to change it)\n";
    }
  }
};

} // namespace

int main(int argc, char** argv) {
  vorn::test::useThreadBackend();
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new SeedListener);
  return RUN_ALL_TESTS();
}
