// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scan_accuracy.hpp"

#include <algorithm>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <sim/demo.hpp>
#include <sim/render.hpp>
#include <sim/truth_json.hpp>
#include <vorn/core/exception.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/patterns.hpp>

namespace vorn::bench {

namespace {

/// Camera pixels to a projector pixel; below a half the stripes are finer than the camera's pixels tell.
constexpr double sampledRatios[] = {0.4, 0.75, 1, 2, 3, 5};

sim::Scene planeAt(double distance, double albedo) {
  sim::Object plane;
  plane.name = "plane";
  plane.shape = sim::Rectangle{{900, 900}};
  plane.world_from_object = sim::Pose::fromDegrees({0, 0, distance}, {6, -8, 0});
  plane.material.albedo = albedo;
  return sim::Scene({plane});
}

/// Defocus the same at every distance.
void defocus(sim::Rig& rig, double sigma) {
  rig.projector.blur = sigma;
  rig.projector.blurSlope = 0;
}

void makeNoisy(sim::Rig& rig, double fullWell, double readNoise) {
  rig.camera.sensor.fullWell = fullWell;
  rig.camera.sensor.readNoise = readNoise;
}

} // namespace

std::vector<ScanCase> scanCases(int divisor) {
  std::vector<ScanCase> cases;
  auto const add = [&](std::string const& name, std::function<void(sim::Rig&)> const& change,
                       sim::Scene const& scene = sim::demoScene()) {
    cases.push_back({name, sim::demoRig(divisor), scene});
    change(cases.back().rig);
  };
  add("demonstration rig", [](sim::Rig&) {});
  add("full well 10 000 electrons", [](sim::Rig& rig) { makeNoisy(rig, 10000, 15); });
  add("full well 3 000, read noise 20", [](sim::Rig& rig) { makeNoisy(rig, 3000, 20); });
  add("full well 1 000, read noise 20", [](sim::Rig& rig) { makeNoisy(rig, 1000, 20); });
  add("defocus 0.5 projector pixels", [](sim::Rig& rig) { defocus(rig, 0.5); });
  add("defocus 0.8", [](sim::Rig& rig) { defocus(rig, 0.8); });
  add("defocus 1.1", [](sim::Rig& rig) { defocus(rig, 1.1); });
  add("defocus 1.4", [](sim::Rig& rig) { defocus(rig, 1.4); });
  add("half the light", [](sim::Rig& rig) { rig.camera.sensor.exposure /= 2; });
  add("a quarter of the light", [](sim::Rig& rig) { rig.camera.sensor.exposure /= 4; });
  add("lamps in the room, 20 %", [](sim::Rig& rig) { rig.camera.sensor.ambient = 0.2; });
  add("global light, 30 %", [](sim::Rig& rig) { rig.projector.globalLight = 0.3; });
  add("flicker, 3 %", [](sim::Rig& rig) { rig.camera.sensor.flicker = 0.03; });
  for (double const distance : {430.0, 560.0, 690.0}) {
    for (double const albedo : {0.2, 0.5, 0.8}) {
      add(
          cv::format("plane at %.0f mm, albedo %.1f", distance, albedo), [](sim::Rig&) {},
          planeAt(distance, albedo));
    }
  }
  for (double const ratio : sampledRatios) {
    // At full resolution the finest projector would have more columns than the code has stripes for.
    int const coarser = ratio < 0.5 ? std::max(divisor, 2) : divisor;
    add(cv::format("%.2g camera pixels a projector pixel", ratio),
        [&](sim::Rig& rig) { rig = sim::demoRigSampled(ratio, coarser); });
  }
  add("sharp projector", [](sim::Rig& rig) { defocus(rig, 0.2); });
  add(
      "highlights", [](sim::Rig& rig) { rig.camera.sensor.exposure *= 1.2; }, sim::shinyScene());
  add(
      "clutter", [](sim::Rig&) {}, sim::clutterScene());
  return cases;
}

ScanCase const& caseNamed(std::vector<ScanCase> const& cases, std::string const& name) {
  auto const found =
      std::find_if(cases.begin(), cases.end(), [&](ScanCase const& given) { return given.name == name; });
  if (found == cases.end()) {
    throw std::out_of_range("there is no case \"" + name + "\"");
  }
  return *found;
}

ScanFigures scan(ScanCase const& given) {
  mv::Sl3dScanner scanner;
  scanner.read(sim::scannerJson(given.rig));
  return scan(given, scanner);
}

ScanFigures scan(ScanCase const& given, mv::Sl3dScanner scanner) {
  sim::Camera const& camera = given.rig.camera;
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  mv::generate_ps4_patterns(columns, rows, given.rig.projector.device.resolution());
  sim::ProjectorView const view(camera, given.rig.projector, given.scene);
  sim::Truth const truth = sim::truth(camera, given.rig.projector, given.scene);
  sim::Signal const signal = sim::signal(camera.sensor, view.expose({columns.begin(), columns.begin() + 4}));
  cv::Mat_<uchar> const mask = sim::truthMask(truth, signal);
  cv::Mat const isClean = mask == static_cast<int>(sim::TruthMask::Clean);

  ScanFigures figures;
  figures.name = given.name;
  figures.amplitude = cv::mean(signal.amplitude, isClean)[0];
  figures.noise = cv::mean(signal.noise, isClean)[0];
  mv::ScanResult result;
  try {
    result = mv::scan(scanner, view.capture(columns));
  } catch (Exception const& exception) {
    figures.refusal = exception.what();
    return figures;
  }
  figures.map = sim::compareMap(result.map, truth, signal, mask);
  figures.points = tools::compareWithTruth(result.xyz, truth, mask);
  figures.artefacts = tools::measureArtefacts(result.xyz, truth, mask, given.scene);
  return figures;
}

} // namespace vorn::bench
