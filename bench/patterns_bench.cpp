// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Pattern sets of 2448 x 2048 pixels, decoded by `decode_patterns`, held against the scanner's own decoding
// of its 13 images in the same run: "ratio" of the whole, and "per_image", the ratio of an image to an image.
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "scan_inputs.hpp"
#include "yardsticks.hpp"

namespace vorn::mv {
namespace {

using bench::cameraSize;

/// The scanner's own decoding.
struct OwnDecoding {
  std::vector<cv::Mat> images = bench::capturedStack(cameraSize);
  Sl3dScanner scanner = bench::calibratedScanner(cameraSize);
};

void decode(benchmark::State& state, std::string const& name) {
  static OwnDecoding own;
  PatternSetOptions options;
  options.axes = PatternAxes::Columns;
  PatternSet const set = PatternSet::builtIn(name, bench::projectorSize, options);
  std::vector<cv::Mat> const images = bench::captured(set.generate(), cameraSize);
  DecodedPatterns decoded;
  bench::measure(state, {"Sl3dScanner::decode", [] { own.scanner.decode(own.images); }},
                 [&] { decoded = decode_patterns(set, images); });
  double const known = cv::countNonZero(decoded.column >= 0);
  if (known < 0.9 * static_cast<double>(decoded.column.total())) {
    state.SkipWithError("most pixels are not decoded");
    return;
  }
  double const perImage = static_cast<double>(own.images.size()) / static_cast<double>(images.size());
  state.counters["images"] = static_cast<double>(images.size());
  state.counters["per_image"] = state.counters["ratio"].value * perImage;
}

BENCHMARK_CAPTURE(decode, gray_phase, "gray-phase")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, multi_frequency, "multi-frequency")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, heterodyne, "heterodyne")->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace vorn::mv
