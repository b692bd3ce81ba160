// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The longest time that each long call works without asking its observer, on images of 12 megapixels and
// clouds of 10 million points: processor time of one thread, so that other work on the machine does not
// count.
#include <algorithm>
#include <ctime>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/core/system.hpp>
#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/pointcloud/apply_filters.hpp>
#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_laser.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/scanner/scan_laser.hpp>

#include "cloud_inputs.hpp"
#include "scan_inputs.hpp"
#include "target_inputs.hpp"

namespace vorn::bench {

namespace {

cv::Size const imageSize(4096, 3072);
constexpr int cloudSide = 3162;

double processorMs() {
  constexpr double msPerClock = 1e3 / CLOCKS_PER_SEC;
  return msPerClock * static_cast<double>(std::clock());
}

/// Notes the longest time between two askings, and between which.
class Gaps : public Observer {
public:
  bool onProgress(std::string_view stage, double fraction) override {
    note(cv::format("%s %.3f", std::string(stage).c_str(), fraction));
    ++asked_;
    return true;
  }

  void note(std::string const& place) {
    double const now = processorMs();
    if (now - last_ > longest_) {
      longest_ = now - last_;
      between_ = before_ + " .. " + place;
    }
    before_ = place;
    last_ = processorMs();
  }

  void print(std::string const& call) const {
    std::cout << cv::format("| %s | %.0f | %d | %s |\n", call.c_str(), longest_, asked_, between_.c_str())
              << std::flush;
  }

private:
  std::string before_ = "begin";
  std::string between_;
  double last_ = processorMs();
  double longest_ = 0.0;
  int asked_ = 0;
};

using Job = std::function<void(Observer*)>;

struct Call {
  std::string name;
  std::function<Job()> prepare; ///< makes the inputs, which are not measured
};

std::vector<cv::Mat> const& photos() {
  static std::vector<cv::Mat> const made = {targetPhoto(imageSize, 30), targetPhoto(imageSize, 150),
                                            targetPhoto(imageSize, 270)};
  return made;
}

cv::Mat noise() {
  cv::Mat image(imageSize, CV_8U);
  cv::randu(image, 0, 256);
  return image;
}

template <class View, class Fill>
std::vector<View> views(Fill const& fill) {
  std::vector<View> result(photos().size());
  for (std::size_t i = 0; i < result.size(); ++i) {
    result[i].name = "view " + std::to_string(i);
    fill(result[i], photos()[i]);
  }
  return result;
}

Call filtering(std::string const& name, std::string const& chain) {
  return {"`applyFilters`, " + name, [=] {
            mv::PointCloud const cloud(organizedScan(cloudSide), true);
            auto const parsed = nlohmann::json::parse(chain);
            return [=](Observer* observer) { mv::applyFilters(cloud, parsed, observer); };
          }};
}

Call scanning(std::string const& name, Light const& light) {
  return {name, [=] {
            auto const scanner = std::make_shared<mv::Sl3dScanner>(calibratedScanner(imageSize));
            auto const stack = capturedStack(imageSize, light);
            return [=](Observer* observer) { mv::scan(*scanner, stack, {}, observer); };
          }};
}

Call laserScanning(std::string const& name, std::function<cv::Mat()> const& make) {
  return {name, [=] {
            std::vector<cv::Mat> const images(2, make());
            return [=](Observer* observer) {
              mv::Stage const stage{{1, 0, 0}, {}};
              mv::scanLaser(lineScanner(imageSize, {0.8F, 0, 0.6F}), images, stage, {}, observer);
            };
          }};
}

Call detecting(std::string const& name, std::function<cv::Mat()> const& make) {
  return {name, [=] {
            cv::Mat const image = make();
            mv::TargetDescription target;
            target.pitch = 15;
            return [=](Observer* observer) { mv::detectTarget(image, target, {}, observer); };
          }};
}

Call calibratingCamera() {
  return {"`calibrateCamera`", [] {
            auto const given = views<mv::CameraView>([](auto& view, cv::Mat const& p) { view.target = p; });
            return [=](Observer* observer) { mv::calibrateCamera(given, calibrationSettings(), observer); };
          }};
}

Call calibratingStereo() {
  return {
      "`calibrateStereo`", [] {
        auto const given = views<mv::StereoView>([](auto& view, cv::Mat const& p) { view.images = {p, p}; });
        return [=](Observer* observer) { mv::calibrateStereo(given, calibrationSettings(), observer); };
      }};
}

Call calibratingLaser() {
  return {"`calibrateLaser`", [] {
            auto const given = views<mv::LaserView>([](auto& view, cv::Mat const& p) {
              view.target = p;
              view.lines = {withLaser(p)};
            });
            return [=](Observer* observer) { mv::calibrateLaser(given, calibrationSettings(), observer); };
          }};
}

/// As far as the columns are decoded: the projector's rows would be no different.
Call calibratingScanner() {
  return {"`calibrateScanner`, one view", [] {
            mv::ScannerView const view{"view", photos()[0], capturedStack(imageSize), {}};
            return [=](Observer* observer) { mv::calibrateScanner({view}, calibrationSettings(), observer); };
          }};
}

std::vector<Call> calls() {
  return {
      scanning("`scan`", {}),
      scanning("`scan`, dim and noisy", {10, 3}),
      laserScanning("`scanLaser`", [] { return withLaser(photos()[0]); }),
      laserScanning("`scanLaser`, noise alone", noise),
      detecting("`detectTarget`", [] { return photos()[0]; }),
      detecting("`detectTarget`, noise alone", noise),
      calibratingCamera(),
      calibratingScanner(),
      calibratingStereo(),
      calibratingLaser(),
      filtering("`DzFilter`", R"([{"class": "Dz"}])"),
      filtering("`ZRangeFilter`", R"([{"class": "ZRange"}])"),
      filtering(
          "`PlaneRemovalFilter`",
          R"([{"class": "PlaneRemoval", "properties": {"Plane": {"p": [0, 0, 500], "n": [0, 0, 1]}}}])"),
      filtering("`OutlierFilter`", R"([{"class": "Outlier"}])"),
      filtering("`OutlierFilter`, many neighbours",
                R"([{"class": "Outlier", "properties": {"Radius": 5, "MinNeighbourCount": 500}}])"),
      filtering("`SmallClusterFilter`", R"([{"class": "SmallCluster"}])"),
      filtering("`UniformSampler`", R"([{"class": "UniformSampler"}])"),
  };
}

/// What a call says when it ends early is shown behind its name.
void measure(Call const& call) {
  Job const job = call.prepare();
  std::string ending;
  Gaps gaps;
  try {
    job(&gaps);
  } catch (Exception const& exception) {
    ending = ", then: " + exception.message().substr(0, 60);
  }
  gaps.note("end");
  gaps.print(call.name + ending);
}

void run(std::string const& only) {
  std::cout << "| call | longest gap, ms | times asked | between |\n|---|---|---|---|\n";
  for (Call const& call : calls()) {
    if (call.name.find(only) != std::string::npos) {
      measure(call);
    }
  }
}

} // namespace

} // namespace vorn::bench

int main(int argc, char** argv) {
  CLI::App app("How long calls work without asking their observer, ms of one thread");
  std::string only;
  app.add_option("--only", only, "Calls whose name contains this");
  CLI11_PARSE(app, argc, argv);
  try {
    vorn::mv::Library::init();
    vorn::System::set("EnableDebugMode", vorn::Variant(false));
    vorn::System::setMessageSink([](std::string const&) {});
    cv::setNumThreads(1);
    vorn::bench::run(only);
  } catch (std::exception const& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
  }
}
