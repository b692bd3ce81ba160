// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A scan of 2448 x 2048 pixels and 13 images, decoded and triangulated, in units of the loops that a skilled
// user would write (skilled_loops.hpp), measured in the same run (counter "ratio").
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "calib/undistorted_map.hpp"
#include "scan_inputs.hpp"
#include "skilled_loops.hpp"
#include "yardsticks.hpp"

namespace vorn::mv {
namespace {

using bench::cameraSize;
using bench::measure;
using bench::measureTwoThreads;
using bench::Yardstick;

constexpr int phaseImages = 4;

/// A stack of images, and the loops that decode it without masks and growth.
class Stack {
public:
  explicit Stack(std::vector<cv::Mat> images)
      : images_(std::move(images)), phases_(images_.begin(), images_.begin() + phaseImages),
        codes_(images_.begin() + phaseImages, images_.end()) {}

  std::vector<cv::Mat> const& images() const { return images_; }
  cv::Mat_<float> const& columns() const { return columns_; }

  void decodePlainly() {
    bench::skilledPhase(phases_, phase_, amplitude_);
    bench::skilledCode(phases_, codes_, phase_, columns_);
  }

  Yardstick yardstick() {
    return {"phase + code", [this] { decodePlainly(); }};
  }

private:
  std::vector<cv::Mat> images_;
  std::vector<cv::Mat> phases_;
  std::vector<cv::Mat> codes_;
  cv::Mat_<float> phase_ = cv::Mat_<float>(cameraSize, 0.0F);
  cv::Mat_<float> amplitude_ = cv::Mat_<float>(cameraSize, 0.0F);
  cv::Mat_<float> columns_ = cv::Mat_<float>(cameraSize, 0.0F);
};

/// Of dim light so little is left that no pixel keeps a coordinate, in low light nearly all do.
enum class Light { Clean, LowLight, Dim, Noise };

Stack& stackOf(Light light) {
  static Stack clean(bench::capturedStack(cameraSize));
  static Stack lowLight(bench::capturedStack(cameraSize, {28, 2}));
  static Stack dim(bench::capturedStack(cameraSize, {10, 3}));
  static Stack noise(bench::noiseStack(cameraSize));
  return light == Light::Clean      ? clean
         : light == Light::LowLight ? lowLight
         : light == Light::Dim      ? dim
                                    : noise;
}

/// The share of the pixels of `map` that are known and hardly differ from `other`.
double agreement(cv::Mat_<float> const& map, cv::Mat_<float> const& other) {
  constexpr double hardly = 1e-3; // projector pixels; flicker is corrected in one of them
  cv::Mat const known = map >= 0;
  cv::Mat difference;
  cv::absdiff(map, other, difference);
  return static_cast<double>(cv::countNonZero(known & (difference < hardly))) / cv::countNonZero(known);
}

/// The share of the valid points that lie near those of `other`, which know nothing of the
/// projector's lens.
double nearness(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<cv::Vec3f> const& other) {
  int valid = 0;
  int near = 0;
  for (int y = 0; y < points.rows; ++y) {
    for (int x = 0; x < points.cols; ++x) {
      cv::Vec3f const& p = points(y, x);
      constexpr double bend = 0.05; // of the distance
      valid += p[2] > 0 ? 1 : 0;
      near += p[2] > 0 && cv::norm(p - other(y, x)) < bend * cv::norm(p) ? 1 : 0;
    }
  }
  return static_cast<double>(near) / valid;
}

/// A yardstick that does not do the work is none, nor is a scan that finds nothing a scan.
bool isSound(benchmark::State& state, double agreeing, double least) {
  if (agreeing < least) {
    state.SkipWithError("the loops beside do not do the same work, or there is none");
  }
  return agreeing >= least;
}

void decode(benchmark::State& state, Light light, int threads) {
  Sl3dScanner scanner = bench::calibratedScanner(cameraSize);
  Stack& stack = stackOf(light);
  if (light == Light::Clean) {
    stack.decodePlainly();
    if (!isSound(state, agreement(scanner.decode(stack.images()), stack.columns()), 0.8)) {
      return;
    }
  }
  if (light == Light::LowLight) {
    double const known = cv::countNonZero(scanner.decode(stack.images()) >= 0);
    if (!isSound(state, known / cameraSize.area(), 0.95)) {
      return;
    }
  }
  auto const work = [&] { scanner.decode(stack.images()); };
  if (threads == 1) {
    measure(state, stack.yardstick(), work);
  } else {
    measureTwoThreads(state, stack.yardstick(), work);
  }
}

/// A scan of 16 bits in units of the same one in 8 bits.
void scanDeep(benchmark::State& state) {
  Sl3dScanner scanner = bench::calibratedScanner(cameraSize);
  std::vector<cv::Mat> const& bytes = stackOf(Light::Dim).images();
  std::vector<cv::Mat> words;
  for (cv::Mat const& image : bytes) {
    constexpr double perGrey = 257;
    image.convertTo(words.emplace_back(), CV_16U, perGrey);
  }
  ScanSettings settings;
  settings.whiteLevel = 65535.0; // found from so dim images it is a quarter, and other pixels would be dark
  measure(state, {"in 8 bits", [&] { scan(scanner, bytes); }}, [&] { scan(scanner, words, settings); });
}

/// Rays against planes on what the clean stack decodes to.
class RayPlane {
public:
  RayPlane(Sl3dScanner const& scanner, cv::Mat_<float> columns) : columns_(std::move(columns)) {
    CameraModel const& camera = scanner.getCameraModel();
    cameraRays_ = undistortedMap(camera.getK(), camera.getD(), camera.getResolution());
    cv::Matx33f const K = scanner.getProjectorModel().getK();
    cv::Matx44f const transform = scanner.getTransform();
    projector_ = {K(0, 0),
                  K(0, 2),
                  transform.get_minor<3, 3>(0, 0),
                  {transform(0, 3), transform(1, 3), transform(2, 3)}};
  }

  Yardstick yardstick() {
    return {"ray-plane", [this] { run(); }};
  }

  void run() { bench::skilledRayPlane(columns_, cameraRays_, projector_, points_); }
  cv::Mat_<cv::Vec3f> const& points() const { return points_; }

private:
  cv::Mat_<float> columns_;
  cv::Mat_<cv::Vec2f> cameraRays_;
  bench::PlainProjector projector_{};
  cv::Mat_<cv::Vec3f> points_ = cv::Mat_<cv::Vec3f>(cameraSize);
};

void triangulate(benchmark::State& state, char const* type, int threads) {
  Sl3dScanner scanner = bench::calibratedScanner(cameraSize);
  cv::Mat_<float> map = scanner.decode(stackOf(Light::Clean).images());
  RayPlane rayPlane(scanner, map);
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, {{0, 0}, cameraSize});
  rayPlane.run();
  if (!isSound(state, nearness(xyz, rayPlane.points()), 0.9)) {
    return;
  }
  map *= type == std::string("Vertical") ? 0.5 : 1.0;
  scanner["ScannerType"] = type;
  auto const work = [&] { scanner.triangulate(map, xyz, {{0, 0}, cameraSize}); };
  if (threads == 1) {
    measure(state, rayPlane.yardstick(), work);
  } else {
    measureTwoThreads(state, rayPlane.yardstick(), work);
  }
}

BENCHMARK_CAPTURE(decode, clean1, Light::Clean, 1)
    ->Name("decode")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(scanDeep)->Name("scanDeep")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, lowLight1, Light::LowLight, 1)
    ->Name("decodeLowLight")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, dim1, Light::Dim, 1)
    ->Name("decodeDim")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, noise1, Light::Noise, 1)
    ->Name("decodeNoise")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, clean2, Light::Clean, 2)
    ->Name("decodeTwoThreads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, lowLight2, Light::LowLight, 2)
    ->Name("decodeLowLightTwoThreads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, dim2, Light::Dim, 2)
    ->Name("decodeDimTwoThreads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, noise2, Light::Noise, 2)
    ->Name("decodeNoiseTwoThreads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(triangulate, horizontal1, "Horizontal", 1)
    ->Name("triangulate")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(triangulate, horizontal2, "Horizontal", 2)
    ->Name("triangulateTwoThreads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(triangulate, vertical1, "Vertical", 1)
    ->Name("triangulateRows")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(triangulate, vertical2, "Vertical", 2)
    ->Name("triangulateRowsTwoThreads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
} // namespace vorn::mv
