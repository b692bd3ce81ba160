// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A scan of 2448 x 2048 pixels and 13 images, decoded and triangulated, in units of a plain copy of one float
// map of that size measured in the same run (counter "copies").
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <vector>

#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "copy_yardstick.hpp"
#include "scan_inputs.hpp"

namespace vorn::mv {
namespace {

using bench::cameraSize;
using bench::measureInCopies;

Sl3dScanner makeScanner() {
  return bench::calibratedScanner(cameraSize);
}

std::vector<cv::Mat> const& stack() {
  static std::vector<cv::Mat> const images = bench::capturedStack(cameraSize);
  return images;
}

void nothing() {}

void decode(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  measureInCopies(state, nothing, [&] { scanner.decode(stack()); });
}

/// Most pixels are left to growth.
void decodeHard(benchmark::State& state, std::vector<cv::Mat> const& images) {
  Sl3dScanner scanner = makeScanner();
  measureInCopies(state, nothing, [&] { scanner.decode(images); });
}

void decodeDim(benchmark::State& state) {
  makeScanner(); // starts the library
  decodeHard(state, bench::capturedStack(cameraSize, {10, 3}));
}

void decodeNoise(benchmark::State& state) {
  decodeHard(state, bench::noiseStack(cameraSize));
}

void decodeTwoThreads(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  stack();
  cv::setNumThreads(2);
  for (auto _ : state) {
    scanner.decode(stack());
  }
  cv::setNumThreads(-1);
}

void triangulate(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  cv::Mat_<float> const map = scanner.decode(stack());
  cv::Mat_<cv::Vec3f> xyz;
  measureInCopies(state, nothing, [&] { scanner.triangulate(map, xyz, {{0, 0}, cameraSize}); });
}

void triangulateRows(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  cv::Mat_<float> map = scanner.decode(stack());
  map *= 0.5F;
  scanner["ScannerType"] = "Vertical";
  cv::Mat_<cv::Vec3f> xyz;
  measureInCopies(state, nothing, [&] { scanner.triangulate(map, xyz, {{0, 0}, cameraSize}); });
}

BENCHMARK(decode)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeDim)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeNoise)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeTwoThreads)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(triangulate)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(triangulateRows)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace vorn::mv
