// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/thread_backend.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <opencv2/core/parallel/parallel_backend.hpp>
#include <thread>
#include <utility>
#include <vector>

namespace vorn::test {

namespace {

class ThreadBackend : public cv::parallel::ParallelForAPI {
public:
  explicit ThreadBackend(int threads) : threads_(threads) {}

  void parallel_for(int tasks, FN_parallel_for_body_cb_t body, void* data) override {
    // Some pieces more than threads, so that who does what is left to chance.
    int const piece = std::max(1, tasks / (3 * threads_));
    std::atomic<int> next{0};
    auto const work = [&](int number) {
      threadNumber() = number;
      for (int begin = next.fetch_add(piece); begin < tasks; begin = next.fetch_add(piece)) {
        body(begin, std::min(begin + piece, tasks), data);
      }
      threadNumber() = 0;
    };
    std::vector<std::thread> others;
    for (int number = 1; number < std::min(threads_, tasks); ++number) {
      others.emplace_back(work, number);
    }
    work(0);
    for (std::thread& other : others) {
      other.join();
    }
  }

  int getThreadNum() const override { return threadNumber(); }
  int getNumThreads() const override { return threads_; }
  int setNumThreads(int threads) override { return std::exchange(threads_, std::max(1, threads)); }
  char const* getName() const override { return "plain threads"; }

private:
  static int& threadNumber() {
    thread_local int number = 0;
    return number;
  }

  int threads_;
};

} // namespace

void useThreadBackend() {
  char const* const text = std::getenv("VORN_TEST_THREADS");
  if (text != nullptr) {
    cv::parallel::setParallelForBackend(std::make_shared<ThreadBackend>(std::max(1, std::atoi(text))), false);
  }
}

} // namespace vorn::test
