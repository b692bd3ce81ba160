// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <ctime>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

namespace vorn::bench {

/// The camera image that throughput is measured on.
inline cv::Size const cameraSize(2448, 2048);

/// Processor time of the whole process in seconds, so that what else runs on the machine counts little.
inline double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

inline double elapsedSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Work that other work is held against, on one thread, measured beside it in the same run.
class Yardstick {
public:
  Yardstick(std::string name, std::function<void()> run) : name_(std::move(name)), run_(std::move(run)) {}

  void measure() {
    run_(); // warms up
    for (int i = 0; i < 7; ++i) {
      double const start = processorSeconds();
      run_();
      shortest_ = std::min(shortest_, processorSeconds() - start);
    }
  }

  std::string const& name() const { return name_; }
  double seconds() const { return shortest_; }

private:
  std::string name_;
  std::function<void()> run_;
  double shortest_ = std::numeric_limits<double>::max();
};

/// Sets the threads of OpenCV and puts them back.
class Threads {
public:
  explicit Threads(int count) : before_(cv::getNumThreads()) { cv::setNumThreads(count); }
  ~Threads() { cv::setNumThreads(before_); }
  Threads(Threads const&) = delete;
  Threads& operator=(Threads const&) = delete;

private:
  int before_;
};

inline void report(benchmark::State& state, Yardstick const& yardstick, double seconds) {
  state.SetLabel(yardstick.name());
  state.counters["ratio"] = seconds / yardstick.seconds();
  state.counters["ns_per_pixel"] = seconds * 1e9 / cameraSize.area();
  state.counters["yardstick_ns_per_pixel"] = yardstick.seconds() * 1e9 / cameraSize.area();
}

/// Times `work` on one thread, `prepare` before each run outside the time. Reports the counters "ratio" (the
/// shortest run in units of the yardstick) and "ns_per_pixel".
template <class Prepare, class Work>
void measure(benchmark::State& state, Yardstick yardstick, Prepare const& prepare, Work const& work) {
  Threads const one(1);
  prepare();
  work(); // pays for what is made once
  yardstick.measure();
  double shortest = std::numeric_limits<double>::max();
  for (auto _ : state) {
    prepare();
    double const start = processorSeconds();
    work();
    double const seconds = processorSeconds() - start;
    shortest = std::min(shortest, seconds);
    state.SetIterationTime(seconds);
  }
  yardstick.measure();
  report(state, yardstick, shortest);
}

template <class Work>
void measure(benchmark::State& state, Yardstick const& yardstick, Work const& work) {
  measure(
      state, yardstick, [] {}, work);
}

/// Times `work` on two threads, and on one in turn with it, by elapsed time. Reports "speedup" besides.
template <class Work>
void measureTwoThreads(benchmark::State& state, Yardstick yardstick, Work const& work) {
  auto const timed = [&](int threads) {
    Threads const set(threads);
    double const start = elapsedSeconds();
    work();
    return elapsedSeconds() - start;
  };
  timed(2);
  yardstick.measure();
  double one = std::numeric_limits<double>::max();
  double two = one;
  for (auto _ : state) {
    one = std::min(one, timed(1));
    double const seconds = timed(2);
    two = std::min(two, seconds);
    state.SetIterationTime(seconds);
  }
  yardstick.measure();
  report(state, yardstick, two);
  state.counters["speedup"] = one / two;
}

} // namespace vorn::bench
