// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What calibration and the laser line cost at 12 megapixels (4096 x 3072), on one thread: the processor time
// that is reported is the main thread's.
#include <cmath>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core/utility.hpp>

#include <vorn/mv/calib/laser_line.hpp>

#include "calib/undistorted_map.hpp"

namespace {

cv::Size const size(4096, 3072);
cv::Mat const K = (cv::Mat_<double>(3, 3) << 4000, 0, 2050, 0, 4000, 1530, 0, 0, 1);

/// A weak and a strong lens, with as many coefficients as calibration gives.
cv::Mat lens(bool isStrong) {
  return isStrong ? (cv::Mat_<double>(1, 5) << -0.35, 0.15, 0.001, -0.002, -0.03)
                  : (cv::Mat_<double>(1, 5) << -0.05, 0.01, 0.0002, -0.0002, 0);
}

void undistortedMap(benchmark::State& state) {
  cv::setNumThreads(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(vorn::mv::undistortedMap(K, lens(state.range(0) != 0), size));
  }
  state.SetItemsProcessed(state.iterations() * size.area());
}

/// The peer, with its default of five rounds: inexact under a strong lens.
void openCvUndistortPoints(benchmark::State& state) {
  cv::setNumThreads(1);
  cv::Mat_<cv::Vec2f> pixels(size);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      pixels(y, x) = cv::Vec2f(static_cast<float>(x), static_cast<float>(y));
    }
  }
  cv::Mat const list = pixels.reshape(2, size.area());
  cv::Mat rays;
  for (auto _ : state) {
    cv::undistortPoints(list, rays, K, lens(state.range(0) != 0));
  }
  state.SetItemsProcessed(state.iterations() * size.area());
}

/// A noisy image with one laser line, which runs across it or down.
cv::Mat laserImage(bool runsDown) {
  cv::Mat_<float> light(size, 20.0F);
  cv::theRNG().state = 1;
  cv::Mat_<float> noise(size);
  cv::theRNG().fill(noise, cv::RNG::NORMAL, 0, 2);
  light += noise;
  int const length = runsDown ? size.height : size.width;
  for (int i = 0; i < length; ++i) {
    double const place = 1500 + 800 * std::sin(0.001 * i);
    for (int j = static_cast<int>(place) - 12; j < place + 12; ++j) {
      double const u = (j - place) / 2;
      light(runsDown ? i : j, runsDown ? j : i) += static_cast<float>(100 * std::exp(-u * u / 2));
    }
  }
  cv::Mat image;
  light.convertTo(image, CV_8U);
  return image;
}

void extractLaserLine(benchmark::State& state) {
  cv::setNumThreads(1);
  bool const runsDown = state.range(0) != 0;
  cv::Mat const image = laserImage(runsDown);
  vorn::mv::LaserLineOptions options;
  options.direction = runsDown ? vorn::mv::LaserLineOptions::Direction::PerRow
                               : vorn::mv::LaserLineOptions::Direction::PerColumn;
  std::size_t found = 0;
  for (auto _ : state) {
    found = vorn::mv::extract_laser_line(image, options).size();
  }
  state.counters["peaks"] = static_cast<double>(found);
  state.SetItemsProcessed(state.iterations() * size.area());
}

/// The yardstick: a plain copy of the image.
void copyImage(benchmark::State& state) {
  cv::Mat const image = laserImage(false);
  cv::Mat copy;
  for (auto _ : state) {
    image.copyTo(copy);
    benchmark::DoNotOptimize(copy.data);
  }
  state.SetItemsProcessed(state.iterations() * size.area());
}

BENCHMARK(undistortedMap)->Name("undistort/ours")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(openCvUndistortPoints)
    ->Name("undistort/cv::undistortPoints")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(extractLaserLine)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(copyImage)->Unit(benchmark::kMillisecond);

} // namespace
