// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/amat.hpp>
#include <vorn/mv/measure/focus.hpp>
#include <vorn/mv/measure/histogram.hpp>

#include "yardsticks.hpp"

namespace {

using namespace vorn;

cv::Size const large(5472, 3648); // 20 megapixels

cv::Mat grain(int type) {
  cv::Mat image(large, type);
  cv::RNG random(5);
  random.fill(image, cv::RNG::UNIFORM, 0, 256);
  return image;
}

/// What a detector finds and a calibration leaves: of three marks two are dots with rings, one a residual as
/// an arrow.
mv::AMat withMarks(cv::Mat const& image, int marks) {
  mv::AMat amat(image);
  cv::RNG random(6);
  auto const place = [&] {
    return cv::Point2d(random.uniform(0.0, 1.0 * large.width), random.uniform(0.0, 1.0 * large.height));
  };
  for (int i = 0; i < 2 * marks / 3; ++i) {
    amat.addCircle(place(), random.uniform(8.0, 16.0));
  }
  for (int i = 0; i < marks / 3; ++i) {
    cv::Point2d const from = place();
    amat.addArrow(from, from + cv::Point2d(random.uniform(-30.0, 30.0), random.uniform(-30.0, 30.0)));
  }
  return amat;
}

/// Drawing beside the copy of the image that it is drawn into: "ratio" holds both.
void drawMarks(benchmark::State& state, double markScale) {
  cv::Mat const image = grain(CV_8UC3);
  mv::AMat const amat = withMarks(image, static_cast<int>(state.range(0)));
  mv::DrawSettings settings;
  settings.markScale = markScale;
  cv::Mat kept;
  bench::Yardstick copy("copy of the image", [&] { kept = image.clone(); });
  double shortest = 1e9;
  bench::measure(state, copy, [&] {
    double const start = bench::processorSeconds();
    kept = amat.draw(settings).picture;
    shortest = std::min(shortest, bench::processorSeconds() - start);
  });
  copy.measure();
  state.counters["ms_beyond_copy"] = 1e3 * (shortest - copy.seconds());
}

void drawMarksLarge(benchmark::State& state) {
  drawMarks(state, 0.0);
}
BENCHMARK(drawMarksLarge)
    ->ArgName("marks")
    ->Arg(3000)
    ->Arg(6000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void drawMarksFine(benchmark::State& state) {
  drawMarks(state, 1.0);
}
BENCHMARK(drawMarksFine)
    ->ArgName("marks")
    ->Arg(3000)
    ->Arg(6000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

/// A table of counts beside two passes of a loop that reads every byte.
void histogramOfBytes(benchmark::State& state) {
  cv::Mat const image = grain(CV_8UC1);
  bench::Yardstick const twice("read twice", [&] {
    for (int pass = 0; pass < 2; ++pass) {
      std::uint32_t sum = 0;
      for (uchar const* p = image.datastart; p != image.dataend; ++p) {
        sum += *p;
        benchmark::DoNotOptimize(sum); // byte by byte
      }
    }
  });
  mv::Histogram histogram;
  bench::measure(state, twice, [&] { histogram = mv::calcHistogram(image); });
}
BENCHMARK(histogramOfBytes)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
