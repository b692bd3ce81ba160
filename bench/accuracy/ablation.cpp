// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "ablation.hpp"

#include <cmath>
#include <filesystem>
#include <iostream>
#include <iterator>

#include <nlohmann/json.hpp>

#include <sim/demo.hpp>
#include <sim/map_comparison.hpp>
#include <sim/render.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/sl/patterns.hpp>

#include "scan_accuracy.hpp"
#include "sl/decode/scan_decoding.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::bench {

namespace {

using mv::sl::DecodingRules;

struct Rule {
  char const* name;
  bool DecodingRules::*isOn;
};

constexpr Rule rules[] = {{"flicker", &DecodingRules::flicker},
                          {"contrast", &DecodingRules::contrast},
                          {"consistency", &DecodingRules::consistency},
                          {"certain images", &DecodingRules::certainImages},
                          {"away from the border", &DecodingRules::awayFromBorder},
                          {"middle of the phases", &DecodingRules::phaseMiddle},
                          {"bridging", &DecodingRules::bridging},
                          {"code check", &DecodingRules::codeCheck},
                          {"growth", &DecodingRules::growth},
                          {"doubtful growth", &DecodingRules::doubtfulGrowth},
                          {"jumps", &DecodingRules::edgeJumps},
                          {"far jumps", &DecodingRules::edgeFarJumps},
                          {"shading", &DecodingRules::edgeShading},
                          {"dark rims", &DecodingRules::weakRims},
                          {"small pieces", &DecodingRules::smallSegments},
                          {"hole filling", &DecodingRules::holeFilling}};

struct Figures {
  double wrongOrders = 0; ///< per 100 000 pixels that are returned
  double off = 0;         ///< likewise: off by over half a projector pixel, or where no light arrives
  double complete = 0;    ///< percent of the clean pixels
  double overBound = 0;   ///< error of the clean pixels over that of the noise
};

/// One of the figures, how it is written, and what counts as a difference.
struct Figure {
  char const* name;
  double Figures::*value;
  char const* format;
  double difference;
  bool isBetterWhenLess;
};

constexpr Figure figures[] = {
    {"Wrong orders per 100 000 pixels", &Figures::wrongOrders, "%.1f", 1, true},
    {"Off by over half a projector pixel, or where no light arrives, per 100 000", &Figures::off, "%.0f", 10,
     true},
    {"Complete, % of the clean pixels", &Figures::complete, "%.2f", 0.05, false},
    {"Error of the clean pixels over the bound", &Figures::overBound, "%.3f", 0.01, true}};

Figures decodeWith(DecodingRules const& used, AblationScene const& scene, mv::sl::ScanMaps& maps) {
  mv::sl::ScanDecodingSettings settings;
  settings.period = mv::sl::columnCode.period;
  settings.resolution = scene.resolution;
  settings.rules = used;
  cv::Mat_<float> const map =
      mv::sl::decodeScan(scene.images, settings, mv::sl::ReasonMap::Leave, maps, [](char const*) {
      }).coordinates;
  sim::MapComparison const comparison = sim::compareMap(map, scene.truth, scene.signal, scene.mask);
  int off = 0;
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      // Without light the truth is no number, and nothing is near it.
      bool const isNear = std::abs(map(y, x) - scene.truth.projector(y, x)[0]) <= 0.5F;
      off += map(y, x) >= 0 && !isNear ? 1 : 0;
    }
  }
  double const share = 1e5 / std::max(comparison.returned, 1);
  return {share * comparison.orderErrors, share * off, 100.0 * comparison.cleanReturned / comparison.clean,
          comparison.overBound()};
}

/// By rules, the first row with all of them, and by scenes.
using Results = std::vector<std::vector<Figures>>;

void printTable(Figure const& figure, std::vector<AblationScene> const& scenes, Results const& results) {
  std::cout << "\n" << figure.name << ":\n\n| without |";
  for (AblationScene const& scene : scenes) {
    std::cout << ' ' << scene.name << " |";
  }
  std::cout << "\n|---|";
  for (std::size_t i = 0; i < scenes.size(); ++i) {
    std::cout << "---|";
  }
  for (std::size_t row = 0; row < results.size(); ++row) {
    std::cout << "\n| " << (row == 0 ? "nothing" : rules[row - 1].name) << " |";
    for (Figures const& result : results[row]) {
      std::cout << ' ' << cv::format(figure.format, result.*figure.value) << " |";
    }
  }
  std::cout << "\n";
}

/// Where a rule makes a difference: `sign` 1 for the better, -1 for the worse.
std::string differences(std::size_t row, int sign, std::vector<AblationScene> const& scenes,
                        Results const& results) {
  std::string text;
  for (std::size_t i = 0; i < scenes.size(); ++i) {
    for (Figure const& figure : figures) {
      double const without = results[row][i].*figure.value - results[0][i].*figure.value;
      double const gain = figure.isBetterWhenLess ? without : -without;
      if (sign * gain >= figure.difference) {
        text += (text.empty() ? "" : ", ") + scenes[i].name;
        break;
      }
    }
  }
  return text.empty() ? "nothing" : text;
}

AblationScene rendered(std::string const& name, ScanCase const& given) {
  AblationScene scene;
  scene.name = name;
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  cv::Size const projector = given.rig.projector.device.resolution();
  mv::generate_ps4_patterns(columns, rows, projector);
  sim::ProjectorView const view(given.rig.camera, given.rig.projector, given.scene);
  scene.images = view.capture(columns);
  scene.resolution = projector.width;
  scene.truth = sim::truth(given.rig.camera, given.rig.projector, given.scene);
  scene.signal = sim::signal(given.rig.camera.sensor, view.expose({columns.begin(), columns.begin() + 4}));
  scene.mask = sim::truthMask(scene.truth, scene.signal);
  return scene;
}

} // namespace

std::vector<AblationScene> ablationScenes() {
  constexpr int divisor = 2;
  std::vector<ScanCase> const cases = scanCases(divisor);
  std::vector<AblationScene> scenes;
  for (auto const& [name, caseName] :
       {std::pair("clean", "demonstration rig"), std::pair("dim", "a quarter of the light"),
        std::pair("noise", "full well 1 000, read noise 20"), std::pair("clutter", "clutter"),
        std::pair("highlights", "highlights"), std::pair("global light", "global light, 30 %"),
        std::pair("flicker", "flicker, 3 %"), std::pair("sharp", "sharp projector"),
        std::pair("0.75 pixels", "0.75 camera pixels a projector pixel"),
        std::pair("5 pixels", "5 camera pixels a projector pixel")}) {
    scenes.push_back(rendered(name, caseNamed(cases, caseName)));
  }
  return scenes;
}

AblationScene ablationScene(std::string const& folder) {
  std::filesystem::path const scan = std::filesystem::path(folder) / "scan";
  auto const read = [&](char const* file) { return tools::readImage((scan / file).string()); };
  AblationScene scene;
  scene.name = "folder";
  scene.images = tools::readSequence(scan.string(), "columns");
  nlohmann::json const scanner =
      tools::readJsonFile((std::filesystem::path(folder) / "scanner_truth.json").string());
  scene.resolution = scanner.at("ProjectorModel").at("Resolution").get<cv::Size>().width;
  std::vector<cv::Mat> channels;
  cv::split(read("truth_projector.tiff"), channels);
  cv::merge(std::vector<cv::Mat>{channels.at(0), channels.at(1)}, scene.truth.projector);
  cv::split(read("truth_signal.png"), channels);
  // 200 times the amplitude of columns, of rows, and 5000 times the noise.
  channels.at(0).convertTo(scene.signal.amplitude, CV_32F, 1 / 200.0);
  channels.at(2).convertTo(scene.signal.noise, CV_32F, 1 / 5000.0);
  scene.mask = read("truth_mask.png");
  return scene;
}

void printAblation(std::vector<AblationScene> const& scenes) {
  Results results(1 + std::size(rules));
  mv::sl::ScanMaps maps;
  for (AblationScene const& scene : scenes) {
    results[0].push_back(decodeWith({}, scene, maps));
    for (std::size_t i = 0; i < std::size(rules); ++i) {
      DecodingRules used;
      used.*rules[i].isOn = false;
      results[i + 1].push_back(decodeWith(used, scene, maps));
    }
  }
  std::cout << "| rule | better on | worse on |\n|---|---|---|\n";
  for (std::size_t row = 1; row < results.size(); ++row) {
    std::cout << "| " << rules[row - 1].name << " | " << differences(row, 1, scenes, results) << " | "
              << differences(row, -1, scenes, results) << " |\n";
  }
  for (Figure const& figure : figures) {
    printTable(figure, scenes, results);
  }
}

} // namespace vorn::bench
