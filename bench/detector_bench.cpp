// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Time and accuracy of finding a target of 21 x 15 dots, beside cv::findCirclesGrid on the same images.
///
/// Counters: share of the visible dots that were found, and RMS error of one coordinate against the image of
/// each dot's centre. findCirclesGrid finds all dots or none, and knows no markers, so it is given views
/// without them.

#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/core/library.hpp>

#include "sim/target_photo.hpp"

namespace {

using vorn::mv::CalibPatternDetector;
namespace sim = vorn::sim;

constexpr double pitch = 15;

/// A view in which a dot seen from the front has about the given diameter.
sim::TargetPhoto photoOf(cv::Size const& size, double dotDiameter, double tilt, bool hasMarkers) {
  constexpr double distance = 750;
  double const focal = 2 * dotDiameter * distance / pitch;
  sim::TargetPhoto photo;
  photo.device = sim::Device({focal, focal}, {0.497 * size.width, 0.503 * size.height},
                             {-0.12, 0.08, 0.0005, -0.0004, 0}, size);
  photo.target.grid.hasMarkers = hasMarkers;
  photo.cam_from_target = sim::viewOf({0, 0}, distance, tilt, 30, 8);
  photo.shading = {0.4, -0.3};
  photo.noise = 2;
  return photo;
}

/// The view's size and dots by number: 0.5, 2 and 5 megapixels.
sim::TargetPhoto view(int number, double tilt, bool hasMarkers) {
  switch (number) {
  case 10:
    return photoOf({800, 600}, 10, tilt, hasMarkers);
  case 20:
    return photoOf({1600, 1200}, 20, tilt, hasMarkers);
  default:
    return photoOf({2448, 2048}, 47, tilt, hasMarkers);
  }
}

/// Root mean square of one coordinate's error and share of the visible dots, for points whose dots are known.
void score(benchmark::State& state, sim::TargetPhoto const& photo,
           std::map<std::pair<int, int>, cv::Point2f> const& found) {
  double squares = 0;
  int count = 0;
  auto const visible = sim::visibleDots(photo, 2.5);
  for (sim::DotTruth const& dot : visible) {
    auto const at = found.find({dot.index.x, dot.index.y});
    if (at != found.end()) {
      cv::Point2d const miss = cv::Point2d(at->second) - *dot.camera;
      squares += 0.5 * miss.dot(miss);
      ++count;
    }
  }
  state.counters["found_%"] = 100.0 * count / static_cast<double>(visible.size());
  state.counters["rms_px"] = std::sqrt(squares / std::max(count, 1));
}

void detect(benchmark::State& state, bool quadraticFit, bool hasMarkers) {
  cv::setNumThreads(1);
  vorn::mv::Library::init();
  vorn::System::set("EnableDebugMode", vorn::Variant(false));
  sim::TargetPhoto const photo =
      view(static_cast<int>(state.range(0)), static_cast<double>(state.range(1)), hasMarkers);
  cv::Mat const image = sim::render(photo);
  CalibPatternDetector detector;
  detector["PatternDim"] = pitch;
  detector["MinDotArea"] = 20.0;
  detector["MaxDotArea"] = 5000.0;
  detector["QuadraticFit"] = quadraticFit;
  auto result = detector.detect(image);
  for (auto _ : state) {
    result = detector.detect(image);
  }
  std::map<std::pair<int, int>, cv::Point2f> found;
  for (auto const& point : result.getKeyPoints()) {
    found[{cvRound(point.objPnt.x / pitch), cvRound(point.objPnt.y / pitch)}] = point.imgPnt;
  }
  score(state, photo, found);
}

void CalibPatternDetector_Edge(benchmark::State& state) {
  detect(state, false, true);
}
void CalibPatternDetector_QuadraticFit(benchmark::State& state) {
  detect(state, true, true);
}
void CalibPatternDetector_NoMarkers(benchmark::State& state) {
  detect(state, false, false);
}

/// 5 megapixels without a target: smooth blobs as large as small dots, the noise of a sensor, or nothing.
cv::Mat pictureOfNothing(int number) {
  cv::Mat image(2048, 2448, CV_8U, cv::Scalar(90));
  if (number == 0) {
    cv::RNG(1).fill(image, cv::RNG::UNIFORM, 0, 255);
    cv::GaussianBlur(image, image, {}, 4);
    cv::normalize(image, image, 0, 255, cv::NORM_MINMAX);
  } else if (number == 1) {
    cv::RNG(2).fill(image, cv::RNG::NORMAL, 90, 4);
  }
  return image;
}

void CalibPatternDetector_NoTarget(benchmark::State& state) {
  cv::setNumThreads(1);
  vorn::mv::Library::init();
  vorn::System::set("EnableDebugMode", vorn::Variant(false));
  cv::Mat const image = pictureOfNothing(static_cast<int>(state.range(0)));
  CalibPatternDetector detector;
  detector["MinDotArea"] = 20.0;
  detector["MaxDotArea"] = 5000.0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(detector.detect(image).count());
  }
}

/// What any search for dots begins with: the image against its surroundings, and outlines.
void OpenCV_outlines(benchmark::State& state) {
  cv::setNumThreads(1);
  cv::Mat const image = pictureOfNothing(static_cast<int>(state.range(0)));
  cv::Mat mask;
  std::vector<std::vector<cv::Point>> outlines;
  for (auto _ : state) {
    cv::adaptiveThreshold(image, mask, 255, cv::ADAPTIVE_THRESH_GAUSSIAN_C, cv::THRESH_BINARY, 45, -3);
    cv::findContours(mask, outlines, cv::RETR_LIST, cv::CHAIN_APPROX_NONE);
    benchmark::DoNotOptimize(outlines.size());
  }
}

void OpenCV_findCirclesGrid(benchmark::State& state) {
  cv::setNumThreads(1);
  sim::TargetPhoto const photo =
      view(static_cast<int>(state.range(0)), static_cast<double>(state.range(1)), false);
  cv::Mat const image = 255 - sim::render(photo); // its default detector wants dark dots
  std::vector<cv::Point2f> points;
  bool isFound = false;
  for (auto _ : state) {
    isFound = cv::findCirclesGrid(image, {21, 15}, points);
  }
  std::map<std::pair<int, int>, cv::Point2f> found;
  // It may start at either end: the nearest dot says which is which.
  for (sim::DotTruth const& dot : sim::visibleDots(photo)) {
    for (std::size_t i = 0; isFound && i < points.size(); ++i) {
      if (cv::norm(cv::Point2d(points[i]) - *dot.camera) < 3) {
        found[{dot.index.x, dot.index.y}] = points[i];
      }
    }
  }
  score(state, photo, found);
}

void views(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"dot_px", "tilt"})->Unit(benchmark::kMillisecond);
  for (int const dot : {10, 20, 47}) {
    for (int const tilt : {0, 30, 45, 60}) {
      benchmark->Args({dot, tilt});
    }
  }
}

BENCHMARK(CalibPatternDetector_Edge)->Name("detectTarget/ours")->Apply(views);
BENCHMARK(CalibPatternDetector_QuadraticFit)->Name("detectTarget/ours, QuadraticFit")->Apply(views);
BENCHMARK(CalibPatternDetector_NoMarkers)
    ->Name("detectUnmarkedTarget")
    ->Args({47, 0})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(CalibPatternDetector_NoTarget)
    ->Name("detectNoTarget/ours")
    ->ArgName("picture")
    ->DenseRange(0, 2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(OpenCV_outlines)
    ->Name("detectNoTarget/cv::adaptiveThreshold and cv::findContours")
    ->ArgName("picture")
    ->DenseRange(0, 2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(OpenCV_findCirclesGrid)->Name("detectTarget/cv::findCirclesGrid")->Apply(views);

} // namespace
