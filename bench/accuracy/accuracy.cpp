// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What the library measures on the virtual rig, against the exact truth: scans over a grid of rigs,
// calibrations, and registrations of surfaces that are known exactly. Prints Markdown tables; --json writes
// every figure; --check runs a few cases and fails when one misses what must hold.
#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>

#include "ablation.hpp"
#include "calibration_accuracy.hpp"
#include "covariance_accuracy.hpp"
#include "fault_accuracy.hpp"
#include "pattern_accuracy.hpp"
#include "registration_accuracy.hpp"
#include "scan_accuracy.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::bench {

namespace {

double perHundredThousand(sim::MapComparison const& map) {
  return map.returned == 0 ? 0 : 1e5 * map.orderErrors / map.returned;
}

double completeness(sim::MapComparison const& map) {
  return map.clean == 0 ? 0 : 100.0 * map.cleanReturned / map.clean;
}

void printScans(std::vector<ScanFigures> const& all) {
  std::cout
      << "| rig | amplitude | noise | decoded, px | over bound | wrong orders per 100 000 | complete, % | "
         "points, mm | 95 %, mm |\n|---|---|---|---|---|---|---|---|---|\n";
  for (ScanFigures const& f : all) {
    if (!f.refusal.empty()) {
      std::cout << "| " << f.name << " | refused: " << f.refusal << " |\n";
      continue;
    }
    if (f.map.clean == 0) {
      std::cout << cv::format("| %s | under 8 everywhere | | | | %d of %d |\n", f.name.c_str(),
                              f.map.orderErrors, f.map.returned);
      continue;
    }
    std::cout << cv::format("| %s | %.1f | %.2f | %.4f | %.3f | %.2f | %.2f | %.4f | %.4f |\n",
                            f.name.c_str(), f.amplitude, f.noise, f.map.rms, f.map.overBound(),
                            perHundredThousand(f.map), completeness(f.map), f.points.rms, f.points.error95);
  }
}

void printArtefacts(ScanFigures const& figures) {
  std::cout << "\n| " << figures.name << " | mm |\n|---|---|\n";
  for (tools::ArtefactFigure const& artefact : figures.artefacts) {
    std::cout << cv::format("| %s | %.4f |\n", artefact.what.c_str(), artefact.value);
  }
}

void printCalibrations(std::vector<CalibrationFigures> const& all) {
  std::cout
      << "\n| rig | views | camera, px | projector, px | camera model, px | projector model, px | scan, mm | "
         "scan with the truth, mm |\n|---|---|---|---|---|---|---|---|\n";
  for (CalibrationFigures const& f : all) {
    std::cout << cv::format("| %s | %d | %.4f | %.4f | %.4f | %.4f | %.4f | %.4f |\n", f.name.c_str(),
                            f.views, f.cameraError, f.projectorError, f.cameraModel, f.projectorModel,
                            f.scan.points.rms, f.scanWithTruth.points.rms);
  }
}

nlohmann::json asJson(ScanFigures const& f) {
  nlohmann::json json = tools::comparisonReport(f.points, f.artefacts);
  json["Name"] = f.name;
  json["Refusal"] = f.refusal;
  json["Amplitude"] = f.amplitude;
  json["Noise"] = f.noise;
  json["DecodedRMS"] = f.map.rms;
  json["OverBound"] = f.map.overBound();
  json["OrderErrorsPer100000"] = perHundredThousand(f.map);
  json["CompletePercent"] = completeness(f.map);
  return json;
}

nlohmann::json asJson(CalibrationFigures const& f) {
  return {{"Name", f.name},
          {"Views", f.views},
          {"CameraError", f.cameraError},
          {"ProjectorError", f.projectorError},
          {"CameraModel", f.cameraModel},
          {"ProjectorModel", f.projectorModel},
          {"Scan", asJson(f.scan)},
          {"ScanWithTruth", asJson(f.scanWithTruth)}};
}

struct Options {
  int divisor = 1;
  std::string json;
  std::string only;
  std::string folder;
  bool isCheck = false;
  bool isAblation = false;
  int patternSide = 0;
  int covarianceRuns = 0;
  int registrationRuns = 0;
  int basinViews = 0;
  bool areFaults = false;
  int freshRigs = 0;
  int firstSeed = 1;
};

void run(Options const& options) {
  std::vector<ScanCase> cases = scanCases(options.divisor);
  cases.erase(std::remove_if(
                  cases.begin(), cases.end(),
                  [&](ScanCase const& given) { return given.name.find(options.only) == std::string::npos; }),
              cases.end());
  if (cases.empty()) {
    throw std::invalid_argument("No case has \"" + options.only + "\" in its name");
  }
  nlohmann::json report{{"Divisor", options.divisor}};
  std::vector<ScanFigures> scans;
  for (ScanCase const& given : cases) {
    scans.push_back(scan(given));
    report["Scans"].push_back(asJson(scans.back()));
  }
  printScans(scans);
  std::vector<CalibrationFigures> calibrations;
  if (options.only.empty()) {
    printArtefacts(scans.front());
    for (std::size_t const k : calibratedCases) {
      calibrations.push_back(calibrate(cases.at(k), scans.at(k)));
      report["Calibrations"].push_back(asJson(calibrations.back()));
    }
    printCalibrations(calibrations);
  }
  if (!options.json.empty()) {
    tools::writeJsonFile(options.json, report);
  }
}

void ablate(Options const& options) {
  std::vector<AblationScene> scenes = ablationScenes();
  if (!options.folder.empty()) {
    scenes.push_back(ablationScene(options.folder));
  }
  printAblation(scenes);
}

/// Prints what is beyond its limit.
class Gate {
public:
  void atMost(std::string const& what, double value, double limit) {
    bool const isKept = value <= limit; // NaN is not
    isOpen_ = isOpen_ && isKept;
    std::cout << cv::format("%s %-60s %10.4f, at most %g\n", isKept ? "ok    " : "BEYOND", what.c_str(),
                            value, limit);
  }
  bool isOpen() const { return isOpen_; }

private:
  bool isOpen_ = true;
};

/// Calibrations from drawn points against what they say of their own error.
bool checkCovariances(int runs) {
  Gate gate;
  auto const within = [&](std::string const& what, double value, double least, double most) {
    gate.atMost(what, value, most);
    gate.atMost(what + ", inverse", 1 / value, 1 / least);
  };
  for (CovarianceFigures const& figures : compareCovariances(runs)) {
    test::RunSummary const& ratios = figures.ratios;
    within(figures.name + ": smallest parameter", ratios.parameterRatio(0), 0.85, 1.15);
    within(figures.name + ": largest parameter", ratios.parameterRatio(1), 0.85, 1.15);
    within(figures.name + ": rigid", ratios.rigid, 0.92, 1.08);
    within(figures.name + ": lengths", ratios.bars, 0.92, 1.08);
    within(figures.name + ": z of single lengths", ratios.zScore, 0.92, 1.08);
    within(figures.name + ": z of scanned points", ratios.pointZ, 0.95, 1.10);
  }
  return gate.isOpen();
}

/// Each fault on rigs by chance.
/// @return whether nothing is found in clean views, and each fault named in nine of ten
bool checkFreshRigs(int rigs, int firstSeed, std::string const& only) {
  auto const first = static_cast<std::uint64_t>(firstSeed);
  std::vector<FreshTally> tallies = tallyDrawn(rigs, first, only);
  printTallies(tallies);
  std::vector<FreshTally> const rendered = tallyRendered(rigs, first, only);
  printTallies(rendered);
  tallies.insert(tallies.end(), rendered.begin(), rendered.end());
  if (tallies.empty()) {
    throw std::invalid_argument("No fault has \"" + only + "\" in its name");
  }
  return std::all_of(tallies.begin(), tallies.end(), [](FreshTally const& tally) {
    constexpr double leastShare = 0.9;
    return tally.fault.empty() ? tally.named == tally.rigs : tally.named >= leastShare * tally.rigs;
  });
}

/// A few scans and a calibration, at half the resolution.
bool check() {
  constexpr int divisor = 2;
  std::vector<ScanCase> const cases = scanCases(divisor);
  Gate gate;
  auto const checkScan = [&](ScanFigures const& f) {
    gate.atMost(f.name + ": error over bound", f.map.overBound(), 1.05);
    gate.atMost(f.name + ": wrong orders per 100 000", perHundredThousand(f.map), 1);
    gate.atMost(f.name + ": missing, %", 100 - completeness(f.map), 0.5);
  };
  for (char const* name :
       {"demonstration rig", "full well 3 000, read noise 20", "plane at 690 mm, albedo 0.8"}) {
    checkScan(scan(caseNamed(cases, name)));
  }
  for (FreshTally const& tally : tallyDrawn(1, 1)) {
    gate.atMost("not named: " + (tally.fault.empty() ? "nothing, in sound views" : tally.fault),
                tally.rigs - tally.named, 0);
  }
  for (ScatterFigures const& figures : compareRegistrations(3)) {
    gate.atMost(figures.name + ": registration, error over foretold", figures.joint, 2.0);
  }
  std::vector<BasinFigures> const starts = basins({3, 1, {0.8}, false});
  gate.atMost("registration, wrong from the truth", starts.at(0).runs - starts.at(0).right, 0);
  gate.atMost("registration, wrong from 2 degrees", starts.at(1).runs - starts.at(1).right, 2);
  ScanFigures const withTruth = scan(cases[0]);
  CalibrationFigures const calibration = calibrate(cases[0], withTruth);
  gate.atMost("calibration: camera, px", calibration.cameraError, 0.05);
  gate.atMost("calibration: projector, px", calibration.projectorError, 0.08);
  gate.atMost("calibration: scan over scan with the truth",
              calibration.scan.points.rms / withTruth.points.rms, 1.2);
  return gate.isOpen();
}

} // namespace

} // namespace vorn::bench

int main(int argc, char** argv) {
  CLI::App app("Errors of scans and calibrations against the truth of the virtual rig");
  vorn::bench::Options options;
  app.add_option("--divisor", options.divisor, "Divide the rig's numbers of pixels by this")
      ->check(CLI::Range(1, 8));
  app.add_option("--json", options.json, "Write all figures to this file");
  app.add_option("--only", options.only,
                 "Scan only the cases with this in their names, and calibrate nothing; with --faults and "
                 "--fresh only those faults");
  app.add_flag("--check", options.isCheck, "A few cases only; fail when one misses what must hold");
  app.add_flag("--ablation", options.isAblation, "Decode with each rule off in turn and show what it gains");
  app.add_option(
         "--covariance", options.covarianceRuns,
         "Calibrate four rigs so many times from drawn points, and fail when their errors are not what "
         "they predict")
      ->check(CLI::Range(2, 10000));
  app.add_option(
         "--patterns", options.patternSide,
         "Decode the built-in pattern sets from drawn images of so many pixels a side, and show their errors")
      ->check(CLI::Range(100, 1000));
  app.add_option("--registration", options.registrationRuns,
                 "Register noisy scans of seven surfaces so many times, and fail when their errors are not "
                 "what they predict")
      ->check(CLI::Range(2, 10000));
  app.add_option("--basin", options.basinViews,
                 "Register so many pairs of views of each of ten parts, with 20 to 80 % in common, from "
                 "starts of several errors and from none")
      ->check(CLI::Range(1, 100));
  app.add_flag("--faults", options.areFaults,
               "Calibrate two rigs from views with each kind of fault; fail when one is not named");
  app.add_option(
         "--fresh", options.freshRigs,
         "Try each kind of fault on so many rigs by chance; fail when fewer than nine of ten are named")
      ->check(CLI::Range(1, 1000));
  app.add_option("--first", options.firstSeed, "With --fresh: the first rig's number")
      ->check(CLI::Range(1, 1000000));
  app.add_option("--folder", options.folder,
                 "With --ablation: also the scan in this folder, rendered with its truth");
  CLI11_PARSE(app, argc, argv);
  try {
    vorn::mv::Library::init();
    vorn::System::set("EnableDebugMode", vorn::Variant(false));
    if (options.isCheck) {
      return vorn::bench::check() ? 0 : 1;
    }
    if (options.covarianceRuns > 0) {
      return vorn::bench::checkCovariances(options.covarianceRuns) ? 0 : 1;
    }
    if (options.patternSide > 0) {
      vorn::bench::printPatternAccuracy(options.patternSide);
      return 0;
    }
    if (options.registrationRuns > 0) {
      return vorn::bench::printRegistrations(options.registrationRuns) ? 0 : 1;
    }
    if (options.basinViews > 0) {
      vorn::bench::printBasins(vorn::bench::basins({10, options.basinViews, {0.2, 0.4, 0.6, 0.8}, true}));
      return 0;
    }
    if (options.areFaults) {
      bool const isPlainRight =
          vorn::bench::printFaultTable(vorn::bench::plainRig(options.divisor), options.only);
      bool const isOtherRight =
          vorn::bench::printFaultTable(vorn::bench::demonstrationRig(options.divisor), options.only);
      return isPlainRight && isOtherRight ? 0 : 1;
    }
    if (options.freshRigs > 0) {
      return vorn::bench::checkFreshRigs(options.freshRigs, options.firstSeed, options.only) ? 0 : 1;
    }
    if (options.isAblation) {
      vorn::bench::ablate(options);
      return 0;
    }
    vorn::bench::run(options);
  } catch (std::exception const& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
  }
  return 0;
}
