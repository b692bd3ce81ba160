// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "fault_accuracy.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "scanner/calibration/scanner_views.hpp"
#include "scanner/drawn_calibration.hpp"

namespace vorn::bench {

namespace {

using Cause = mv::FindingCause;

mv::CalibrationSettings settingsFor(CalibratedRig const& rig) {
  mv::CalibrationSettings settings;
  settings.detector["PatternDim"] = rig.target.grid.pitch;
  constexpr int coarse = 1000;
  if (rig.rig.camera.device.resolution().width < coarse) {
    constexpr double smallDots = 20;
    settings.detector["MinDotArea"] = smallDots;
  }
  settings.projector = rig.rig.projector.device.resolution();
  return settings;
}

std::vector<mv::ScannerView> renderedViews(CalibratedRig const& rig) {
  sim::Campaign const campaign = rig.campaign();
  std::vector<mv::ScannerView> views;
  for (std::size_t i = 0; i < campaign.views.size(); ++i) {
    views.push_back(rendered(campaign, i));
  }
  return views;
}

/// The views with a fault; those that it spares are the clean ones.
std::vector<mv::ScannerView> spoiledViews(CalibratedRig const& rig, std::vector<mv::ScannerView> views,
                                          std::string const& words) {
  sim::Fault const fault = sim::faultOf(words);
  sim::Campaign campaign = rig.campaign();
  spoil(campaign, fault);
  auto const count = static_cast<int>(views.size());
  int const first = firstSpoiled(fault, count);
  bool const isOne = first >= 0 && fault.kind.reach != sim::FaultReach::Following;
  for (int i = std::max(first, 0); i < (isOne ? first + 1 : count); ++i) {
    auto const number = static_cast<std::size_t>(i);
    views[number] = rendered(campaign, number);
  }
  return views;
}

/// The rig that a calibration has to find: a fault that spoils every view and the scan alike is a part of it.
CalibratedRig truthOf(CalibratedRig const& rig, std::string const& words) {
  CalibratedRig truth = rig;
  if (!words.empty() && sim::faultOf(words).kind.reach == sim::FaultReach::All &&
      sim::faultOf(words).view < 0) {
    sim::Campaign campaign = rig.campaign();
    spoil(campaign, sim::faultOf(words));
    truth.rig = campaign.scanRig;
  }
  return truth;
}

using Job = std::function<mv::ScannerCalibration(mv::CalibrationSettings const&)>;

/// What a calibration says; made all the same where it is refused.
/// @param truth to compare the result with; none when null
FaultFigures saidOf(Job const& job, mv::CalibrationSettings settings, CalibratedRig const* truth) {
  constexpr double micrometres = 1000;
  FaultFigures figures;
  mv::ScannerCalibration calibration;
  try {
    calibration = job(settings);
  } catch (Exception const& e) {
    figures.refusal = e.message();
    settings.isRefused = false;
    try {
      calibration = job(settings);
    } catch (Exception const&) {
      return figures;
    }
  }
  figures.findings = calibration.report.findings;
  if (!calibration.report.notAdjusted.empty()) {
    figures.refusal = calibration.report.notAdjusted;
  }
  for (mv::CalibratedView const& view : calibration.views) {
    if (!view.isUsed()) {
      figures.leftOut.push_back(view.name + ": " + view.reason);
    }
  }
  if (truth != nullptr) {
    figures.errors = errorsOf(calibration.object, *truth);
    figures.predicted = calibration.report.predicted ? micrometres * calibration.report.predicted->rigid : 0;
  }
  return figures;
}

FaultFigures calibrated(CalibratedRig const& rig, std::vector<mv::ScannerView> const& views,
                        CalibratedRig const* truth) {
  return saidOf([&](mv::CalibrationSettings const& settings) { return calibrateScanner(views, settings); },
                settingsFor(rig), truth);
}

std::string textOf(mv::Finding const& finding) {
  return cv::format("%s %.3g (limit %.3g)", nameOf(finding.cause).c_str(), finding.value, finding.limit);
}

void printRow(FaultCase const& given, FaultFigures const& figures) {
  std::string said;
  for (mv::Finding const& finding : figures.findings) {
    said += (said.empty() ? "" : ", ") + textOf(finding);
  }
  std::string left = figures.refusal.empty() ? "" : "refused";
  for (std::string const& view : figures.leftOut) {
    left += (left.empty() ? "" : "; ") + view;
  }
  VolumeErrors const& e = figures.errors;
  std::string const goal = given.goal > 0 ? cv::format("%.1f", given.goal) : "";
  std::cout << cv::format("| %s | %s | %s | %.2f | %.2f | %.2f | %.2f | %.2f | %s |\n",
                          given.fault.empty() ? "none" : given.fault.c_str(), said.c_str(), left.c_str(),
                          e.rigid, e.foretold, e.bars, e.raw, figures.predicted, goal.c_str())
            << std::flush;
}

/// What a fault is called in points that were drawn, without images: there a target that moves spoils its
/// view.
std::vector<FaultCase> drawnCases() {
  return {{"", {}},
          {"projector-turned=0.03", Cause::DeviceMoved},
          {"camera-focus=0.2", Cause::FocusChanged},
          {"projector-focus=0.2", Cause::FocusChanged},
          {"bent-target=0.3", Cause::BentTarget},
          {"dirty-dots=1", Cause::WrongDots},
          {"moved-before=0.36", Cause::WrongView},
          {"mirrored-projector", Cause::Mirrored},
          {"same-pose", Cause::SamePose},
          {"small-target=40", Cause::Coverage},
          {"small-tilts=5", Cause::SmallTilts},
          {"prism=1", Cause::LensModel}};
}

std::vector<FaultCase> imageCases() {
  return {{"gamma", Cause::Gamma},
          {"flicker", Cause::Flicker},
          {"bands", Cause::Bands},
          {"overexposed", Cause::Overexposed},
          {"target-overexposed", Cause::TargetOverexposed},
          {"too-dark", Cause::TooDark},
          {"room-light", Cause::RoomLight},
          {"camera-blurred", Cause::CameraBlurred},
          {"projector-blurred", Cause::ProjectorBlurred},
          {"staircase", Cause::Staircase},
          {"mixed-view", Cause::MovedBefore},
          {"moved-before", Cause::MovedBefore},
          {"moved-between", Cause::MovedBetween},
          {"moved-during", Cause::MovedDuring}};
}

/// A fault with the view that it spoils, or begins with, by chance.
/// @param isOfOne whether what may spoil all views spoils one
std::string atAnyView(std::string const& words, std::uint64_t seed, std::size_t views, bool isOfOne) {
  sim::Fault const fault = sim::faultOf(words);
  bool const isOfAll = fault.kind.reach == sim::FaultReach::All && !isOfOne;
  if (fault.kind.reach == sim::FaultReach::Views || isOfAll) {
    return words;
  }
  // What follows a view leaves at least two before it and one after.
  std::size_t const first = fault.kind.reach == sim::FaultReach::Following ? 2 : 0;
  std::size_t const last = views - 1 - first / 2;
  return words + "@" + std::to_string(first + static_cast<std::size_t>(seed * 7 % (last - first + 1)));
}

/// The whole job on points that are drawn.
FaultFigures diagnosed(CalibratedRig const& rig, std::string const& words, std::uint64_t seed) {
  sim::Campaign campaign = rig.campaign();
  if (!words.empty()) {
    spoil(campaign, sim::faultOf(words));
  }
  std::vector<mv::AdjustmentView> const drawn = drawnViews(campaign, {}, seed);
  mv::ScannerViews views;
  for (mv::AdjustmentView const& view : drawn) {
    views.names.push_back(view.name);
  }
  views.measure = [&](std::size_t number, mv::MeasuredView& view, mv::ViewSteps& /*steps*/) {
    view.sizes = {rig.rig.camera.device.resolution()};
    view.result.devices = {test::seenIn(drawn[number], drawn[number].points0),
                           test::seenIn(drawn[number], drawn[number].points1)};
  };
  return saidOf(
      [&](mv::CalibrationSettings const& settings) { return calibrateScanner(views, settings, nullptr); },
      settingsFor(rig), nullptr);
}

void count(FreshTally& tally, FaultCase const& given, FaultFigures const& figures) {
  ++tally.rigs;
  bool const isNamed = given.cause ? figures.names(*given.cause) : figures.findings.empty();
  bool const areOthers =
      std::any_of(figures.findings.begin(), figures.findings.end(),
                  [&](mv::Finding const& finding) { return finding.cause != given.cause; });
  tally.named += isNamed ? 1 : 0;
  tally.others += areOthers ? 1 : 0;
  tally.refusedOtherwise += !isNamed && !figures.refusal.empty() ? 1 : 0;
  if (!isNamed || areOthers) {
    std::cerr << tally.fault << ", rig " << tally.rigs << ": " << figures.refusal;
    for (mv::Finding const& finding : figures.findings) {
      std::cerr << ' ' << textOf(finding) << " view " << finding.view << ';';
    }
    std::cerr << '\n';
  }
}

/// What some of the faults are told by; each is drawn as it is among all.
std::vector<FreshTally> askedFor(std::vector<FreshTally> tallies, std::string const& only) {
  auto const isOther = [&](FreshTally const& tally) { return tally.fault.find(only) == std::string::npos; };
  tallies.erase(std::remove_if(tallies.begin(), tallies.end(), isOther), tallies.end());
  return tallies;
}

std::vector<FreshTally> talliesOf(std::vector<FaultCase> const& cases, bool isRendered) {
  std::vector<FreshTally> tallies;
  for (FaultCase const& given : cases) {
    tallies.push_back({given.fault, isRendered});
  }
  return tallies;
}

} // namespace

bool FaultFigures::names(mv::FindingCause cause) const {
  return std::any_of(findings.begin(), findings.end(),
                     [cause](mv::Finding const& finding) { return finding.cause == cause; });
}

std::vector<FaultCase> faultCases() {
  constexpr double sound = 1.0;
  std::vector<FaultCase> cases{{"", {}, sound},
                               {"projector-turned=0.03@5", Cause::DeviceMoved},
                               {"camera-focus=0.2@5", Cause::FocusChanged},
                               {"projector-focus=0.2@5", Cause::FocusChanged},
                               {"bent-target=0.3", Cause::BentTarget, 2.5},
                               {"dirty-dots=1", Cause::WrongDots, sound},
                               {"prism=1", Cause::LensModel},
                               {"small-target=40", Cause::Coverage},
                               {"small-tilts=5", Cause::SmallTilts},
                               {"same-pose@3", Cause::SamePose, sound},
                               {"mirrored-camera@3", Cause::Mirrored, sound},
                               {"mirrored-projector@3", Cause::Mirrored, sound}};
  for (FaultCase const& image : imageCases()) {
    bool const isMotion = image.fault.rfind("moved", 0) == 0;
    cases.push_back({image.fault + (isMotion ? "@3" : "@2"), image.cause, sound});
  }
  return cases;
}

bool printFaultTable(CalibratedRig const& rig, std::string const& only) {
  std::cout << "\n"
            << rig.name << ", " << rig.poses.size() << " views\n\n"
            << "| fault | said | left out | rigid, um | foretold there, um | bars, um | raw, um | foretold "
               "where the target was, um | goal |\n|---|---|---|---|---|---|---|---|---|\n";
  std::vector<mv::ScannerView> const clean = renderedViews(rig);
  bool areAllNamed = true;
  for (FaultCase const& given : faultCases()) {
    if (given.fault.find(only) == std::string::npos) {
      continue;
    }
    CalibratedRig const truth = truthOf(rig, given.fault);
    FaultFigures const figures =
        calibrated(rig, given.fault.empty() ? clean : spoiledViews(rig, clean, given.fault), &truth);
    printRow(given, figures);
    bool const isRight = given.cause ? figures.names(*given.cause) : figures.findings.empty();
    areAllNamed = areAllNamed && isRight;
  }
  return areAllNamed;
}

std::vector<FreshTally> tallyDrawn(int rigs, std::uint64_t first, std::string const& only) {
  std::vector<FaultCase> const cases = drawnCases();
  std::vector<FreshTally> tallies = talliesOf(cases, false);
  for (int i = 0; i < rigs; ++i) {
    std::uint64_t const seed = first + static_cast<std::uint64_t>(i);
    constexpr int views = 8;
    CalibratedRig const rig = randomRig(seed, views, 1);
    for (std::size_t k = 0; k < cases.size(); ++k) {
      std::string const& fault = cases[k].fault;
      if (fault.find(only) == std::string::npos) {
        continue;
      }
      std::uint64_t const draw = seed * cases.size() + k;
      count(tallies[k], cases[k],
            diagnosed(rig, fault.empty() ? fault : atAnyView(fault, draw, views, false), draw));
    }
  }
  return askedFor(std::move(tallies), only);
}

std::vector<FreshTally> tallyRendered(int rigs, std::uint64_t first, std::string const& only) {
  std::vector<FaultCase> cases = imageCases();
  cases.insert(cases.begin(), FaultCase());
  std::vector<FreshTally> tallies = talliesOf(cases, true);
  for (int i = 0; i < rigs; ++i) {
    std::uint64_t const seed = first + static_cast<std::uint64_t>(i);
    constexpr int views = 5;
    constexpr int divisor = 2;
    CalibratedRig const rig = randomRig(seed, views, divisor);
    std::vector<mv::ScannerView> const clean = renderedViews(rig);
    for (std::size_t k = 0; k < cases.size(); ++k) {
      std::string const& fault = cases[k].fault;
      if (fault.find(only) == std::string::npos) {
        continue;
      }
      count(tallies[k], cases[k],
            calibrated(rig,
                       fault.empty()
                           ? clean
                           : spoiledViews(rig, clean, atAnyView(fault, seed + k, clean.size(), true)),
                       nullptr));
    }
  }
  return askedFor(std::move(tallies), only);
}

void printTallies(std::vector<FreshTally> const& tallies) {
  std::cout << "\n| fault | views | rigs | named | refused otherwise | another cause too |\n"
               "|---|---|---|---|---|---|\n";
  for (FreshTally const& tally : tallies) {
    std::cout << cv::format("| %s | %s | %d | %d | %d | %d |\n",
                            tally.fault.empty() ? "none: nothing found" : tally.fault.c_str(),
                            tally.isRendered ? "rendered" : "drawn", tally.rigs, tally.named,
                            tally.refusedOtherwise, tally.others)
              << std::flush;
  }
}

} // namespace vorn::bench
