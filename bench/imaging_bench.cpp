// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Image filters on a 20-megapixel image, beside the same work done with OpenCV.

#include <opencv2/imgproc.hpp>

#include <benchmark/benchmark.h>

#include "imaging/local_average_threshold.hpp"

namespace {

using vorn::mv::LocalAverageThreshold;

/// Grey blobs and noise, 5472 x 3648.
cv::Mat largeImage() {
  cv::Mat image(3648, 5472, CV_8U);
  cv::randu(image, 0, 256);
  cv::GaussianBlur(image, image, cv::Size(5, 5), 1.0);
  return image;
}

/// Sets the number of threads for one benchmark.
class Threads {
public:
  explicit Threads(std::int64_t count) : before_(cv::getNumThreads()) {
    cv::setNumThreads(static_cast<int>(count));
  }
  ~Threads() { cv::setNumThreads(before_); }

private:
  int before_;
};

void countPixels(benchmark::State& state, cv::Mat const& image) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(image.total()));
}

/// Arguments: radius, threads.
void LocalAverage(benchmark::State& state) {
  Threads const threads(state.range(1));
  cv::Mat const image = largeImage();
  cv::Mat result;
  LocalAverageThreshold const rule{static_cast<int>(state.range(0)), 90, 255, 0};
  for (auto _ : state) {
    localAverageThreshold(image, rule, result);
  }
  countPixels(state, image);
}

/// The same threshold out of OpenCV's parts, with its rounding: a box mean, and a comparison with it.
void BoxSubtractCompare(benchmark::State& state) {
  Threads const threads(state.range(1));
  cv::Mat const image = largeImage();
  int const side = 2 * static_cast<int>(state.range(0));
  cv::Mat mean;
  cv::Mat difference;
  cv::Mat result;
  for (auto _ : state) {
    cv::boxFilter(image, mean, -1, cv::Size(side, side));
    cv::subtract(mean, image, difference);
    cv::compare(difference, 2, result, cv::CMP_LE);
  }
  countPixels(state, image);
}

void AdaptiveThreshold(benchmark::State& state) {
  Threads const threads(state.range(1));
  cv::Mat const image = largeImage();
  int const side = 2 * static_cast<int>(state.range(0)) + 1;
  cv::Mat result;
  for (auto _ : state) {
    cv::adaptiveThreshold(image, result, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, side, 2);
  }
  countPixels(state, image);
}

/// What moving the image through memory costs alone.
void Copy(benchmark::State& state) {
  cv::Mat const image = largeImage();
  cv::Mat result;
  for (auto _ : state) {
    image.copyTo(result);
  }
  countPixels(state, image);
}

void radiusAndThreads(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"radius", "threads"})
      ->ArgsProduct({{5, 50}, {1, 2}})
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

BENCHMARK(LocalAverage)->Name("localThreshold/ours")->Apply(radiusAndThreads);
BENCHMARK(BoxSubtractCompare)
    ->Name("localThreshold/cv::boxFilter, subtract, compare")
    ->Apply(radiusAndThreads);
BENCHMARK(AdaptiveThreshold)->Name("localThreshold/cv::adaptiveThreshold")->Apply(radiusAndThreads);
BENCHMARK(Copy)->Name("copyImage20Mp")->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
