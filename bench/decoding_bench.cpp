// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The structured-light decoders on a camera image of 2448 x 2048, outputs allocated, in units of the loops
// that a skilled user would write (skilled_loops.hpp), measured in the same run (counter "ratio").
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/global_direct_light.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>
#include <vorn/mv/sl/phase_quality.hpp>
#include <vorn/mv/sl/phase_unwrapping.hpp>

#include "skilled_loops.hpp"
#include "yardsticks.hpp"

namespace vorn::mv {
namespace {

using bench::cameraSize;
using bench::measure;
using bench::Yardstick;

/// What a camera sees of a projector 1280 pixels wide: its columns spread over the image, fringes of 4
/// columns, grey levels between 30 and 200, noise of two grey levels.
struct Scene {
  std::vector<cv::Mat> phaseImages;
  std::vector<cv::Mat> codeImages;
  cv::Mat_<float> phase;
  cv::Mat_<float> quality;
  cv::Mat_<std::int16_t> code;
  cv::Mat_<uchar> state; ///< the code trusted in the middle nine tenths of each stripe
  cv::Mat_<uchar> mask;  ///< nothing masked
};

double projectorColumn(int y, int x) {
  return 1280.0 * x / cameraSize.width + 3.0 * std::sin(y * 0.004);
}

cv::Mat captured(double (*brightness)(double column, int image), int image) {
  cv::Mat_<float> exact(cameraSize);
  for (int y = 0; y < exact.rows; ++y) {
    for (int x = 0; x < exact.cols; ++x) {
      exact(y, x) = static_cast<float>(30 + 170 * brightness(projectorColumn(y, x), image));
    }
  }
  cv::Mat_<float> noise(cameraSize);
  cv::randn(noise, 0, 2);
  cv::Mat result;
  cv::Mat(exact + noise).convertTo(result, CV_8U);
  return result;
}

Scene makeScene() {
  init_library();
  Scene scene;
  for (int k = 0; k < 4; ++k) {
    scene.phaseImages.push_back(captured(
        [](double column, int image) { return 0.5 + 0.5 * std::sin((column / 4 + image / 4.0) * 2 * CV_PI); },
        k));
  }
  for (int k = 0; k < 9; ++k) {
    scene.codeImages.push_back(captured(
        [](double column, int image) {
          int const word = static_cast<int>(std::floor(column / 4)) + 2;
          return static_cast<double>((image == 0 ? word : word >> image ^ word) & 1);
        },
        k));
  }
  decode_phase_shift(scene.phaseImages, scene.phase);
  scene.quality = cv::Mat_<float>(cameraSize, 0.0F);
  calc_quality(scene.phase, scene.quality);
  decode_binary_xor0_pattern(scene.codeImages, scene.code, 320, 20, 0);
  scene.mask = cv::Mat_<uchar>(cameraSize, uchar{255});
  scene.state.create(cameraSize);
  for (int y = 0; y < cameraSize.height; ++y) {
    for (int x = 0; x < cameraSize.width; ++x) {
      double const inStripe = projectorColumn(y, x) / 4 - std::floor(projectorColumn(y, x) / 4);
      scene.state(y, x) = inStripe > 0.05 && inStripe < 0.95 ? 255 : 0;
    }
  }
  return scene;
}

Scene const& scene() {
  static Scene const made = makeScene();
  return made;
}

cv::Mat_<float> floatMap() {
  return cv::Mat_<float>(cameraSize, 0.0F);
}

Yardstick phaseYardstick() {
  return {"phase", [phase = floatMap(), amplitude = floatMap()]() mutable {
            bench::skilledPhase(scene().phaseImages, phase, amplitude);
          }};
}

Yardstick codeYardstick() {
  return {"code", [columns = floatMap()]() mutable {
            bench::skilledCode(scene().phaseImages, scene().codeImages, scene().phase, columns);
          }};
}

Yardstick phaseAndCodeYardstick() {
  return {"phase + code", [phase = floatMap(), amplitude = floatMap(), columns = floatMap()]() mutable {
            bench::skilledPhase(scene().phaseImages, phase, amplitude);
            bench::skilledCode(scene().phaseImages, scene().codeImages, phase, columns);
          }};
}

void decodePhaseShift(benchmark::State& state) {
  cv::Mat_<float> phase = floatMap();
  measure(state, phaseYardstick(), [&] { decode_phase_shift(scene().phaseImages, phase); });
}

void decodePhaseShiftMasked(benchmark::State& state) {
  cv::Mat_<float> phase = floatMap();
  measure(state, phaseYardstick(), [&] { decode_phase_shift(scene().phaseImages, phase, scene().mask); });
}

void decodeThreeSteps(benchmark::State& state) {
  cv::Mat_<float> phase = floatMap();
  std::vector<cv::Mat> const images(scene().phaseImages.begin(), scene().phaseImages.begin() + 3);
  measure(state, phaseYardstick(), [&] { decode_phase_shift(images, phase); });
}

void calcMagnitude(benchmark::State& state) {
  cv::Mat_<float> magnitude = floatMap();
  measure(state, phaseYardstick(), [&] { calc_magnitude(scene().phaseImages, magnitude); });
}

void calcQuality(benchmark::State& state) {
  cv::Mat_<float> quality = floatMap();
  measure(state, phaseYardstick(), [&] { calc_quality(scene().phase, quality, scene().mask); });
}

void decodeBinaryXor0(benchmark::State& state) {
  cv::Mat code(cameraSize, CV_16SC1, cv::Scalar(0));
  measure(state, codeYardstick(),
          [&] { decode_binary_xor0_pattern(scene().codeImages, code, 320, 20, 0, scene().mask); });
}

void decodeGray(benchmark::State& state) {
  cv::Mat code(cameraSize, CV_16UC1, cv::Scalar(0));
  measure(state, codeYardstick(),
          [&] { decode_gray_patterns(scene().codeImages, code, 511, 20, 0, scene().mask); });
}

void unwrap(benchmark::State& state, cv::Mat const& trusted) {
  cv::Mat_<float> phase;
  cv::Mat growth;
  auto const prepare = [&] {
    scene().phase.copyTo(phase);
    trusted.copyTo(growth);
  };
  measure(state, phaseAndCodeYardstick(), prepare,
          [&] { unwrap_phase(phase, scene().quality, growth, scene().code, scene().mask); });
}

void unwrapPhase(benchmark::State& state) {
  unwrap(state, scene().state);
}

/// The same share of trusted pixels, but the others scattered: each waits on its own.
void unwrapScattered(benchmark::State& state) {
  cv::Mat_<uchar> scattered(cameraSize);
  cv::randu(scattered, 0, 10);
  unwrap(state, scattered > 0);
}

void separateLight(benchmark::State& state) {
  cv::Mat direct(cameraSize, CV_32FC1, cv::Scalar(0));
  cv::Mat global = direct.clone();
  cv::Mat highest = direct.clone();
  cv::Mat lowest = direct.clone();
  measure(state, phaseAndCodeYardstick(),
          [&] { estimate_global_direct_light(direct, global, scene().codeImages, highest, lowest); });
}

void generateCombinedPatterns(benchmark::State& state) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  measure(state, phaseAndCodeYardstick(), [&] { generate_ps4_patterns(columns, rows, {1920, 1080}); });
}

BENCHMARK(decodePhaseShift)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodePhaseShiftMasked)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeThreeSteps)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(calcMagnitude)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(calcQuality)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeBinaryXor0)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeGray)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(unwrapPhase)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(unwrapScattered)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(separateLight)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(generateCombinedPatterns)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace vorn::mv
