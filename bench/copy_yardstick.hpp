// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <ctime>
#include <limits>
#include <opencv2/core.hpp>

namespace vorn::bench {

/// The camera image that throughput is measured on.
inline cv::Size const cameraSize(2448, 2048);

/// Processor time of the whole process in seconds, so that what else runs on the machine counts little.
inline double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// The shortest time of a plain copy of one float map of `cameraSize`, measured beside what it is held
/// against.
class CopyYardstick {
public:
  CopyYardstick() : source_(cameraSize, 1.0F), target_(cameraSize, 0.0F) { measure(); }

  void measure() {
    for (int i = 0; i < 10; ++i) {
      double const start = processorSeconds();
      source_.copyTo(target_);
      benchmark::DoNotOptimize(target_.data);
      shortest_ = std::min(shortest_, processorSeconds() - start);
    }
  }

  double seconds() const { return shortest_; }

private:
  cv::Mat_<float> source_;
  cv::Mat_<float> target_;
  double shortest_ = std::numeric_limits<double>::max();
};

/// Times `work` on one thread, `prepare` before each run outside the time, and reports the counters "copies"
/// (the shortest run in units of the copy) and "ns_per_pixel".
template <class Prepare, class Work>
void measureInCopies(benchmark::State& state, Prepare const& prepare, Work const& work) {
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  prepare();
  work(); // pays for what is made once
  CopyYardstick copy;
  double shortest = std::numeric_limits<double>::max();
  for (auto _ : state) {
    prepare();
    double const start = processorSeconds();
    work();
    double const seconds = processorSeconds() - start;
    shortest = std::min(shortest, seconds);
    state.SetIterationTime(seconds);
  }
  copy.measure();
  cv::setNumThreads(threads);
  state.counters["copies"] = shortest / copy.seconds();
  state.counters["ns_per_pixel"] = shortest * 1e9 / cameraSize.area();
  state.counters["copy_ns_per_pixel"] = copy.seconds() * 1e9 / cameraSize.area();
}

} // namespace vorn::bench
