// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/calibration_run.hpp"

#include <cstddef>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "tools/calibration/adjustment_plots.hpp"
#include "tools/calibration/calibration_page.hpp"
#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/residual_plots.hpp"
#include "tools/calibration/rig_report.hpp"
#include "tools/calibration/view_overlays.hpp"
#include "tools/commands/laser_options.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/camera_input.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/files/target_file.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"

namespace vorn::tools {

namespace {

constexpr int plotsARow = 2;

/// What `--plot` shows of a calibration, in rows of two.
std::vector<mv::Plot> plotsOf(mv::Calibration const& calibration, mv::Ground ground) {
  constexpr std::size_t mostViews = 12;
  std::vector<mv::Plot> plots = meanErrorPlots(calibration, ground);
  auto const append = [&](std::vector<mv::Plot> const& more) {
    plots.insert(plots.end(), more.begin(), more.end());
  };
  append(adjustmentPlots(calibration, ground));
  mv::Plot const byView = errorsByViewPlot(calibration, ground);
  bool const isRowOpen = plots.size() % plotsARow != 0;
  if (isRowOpen) {
    append({byView});
  }
  append(viewErrorPlots(calibration, ground, mostViews)); // those of a view side by side
  if (!isRowOpen) {
    append({byView});
  }
  return plots;
}

/// Says what is wrong with the views, or should be known; why a view was left out stands in the table.
/// @param pair which devices it is about, where there are more than two; ends with a colon and a space
void warnOfFindings(mv::Calibration const& calibration, Report& report, std::string const& pair = "") {
  if (calibration.report.isProjectorGuessed) {
    cv::Size const guessed = calibration.report.devices.back().resolution;
    report.warn(pair + "the projector's size is a guess from the decoded images, " + sizeText(guessed) +
                ": give the true one by --projector, as --projector 912x570");
  }
  if (!calibration.report.notAdjusted.empty()) {
    report.warn("the views were not adjusted together: " + calibration.report.notAdjusted);
  }
  for (mv::Finding const& finding : calibration.report.findings) {
    if (!isLeftOut(finding, calibration)) {
      report.warn(pair + finding.text + ". " + finding.advice);
    }
  }
}

/// The object, as a file of its own.
template <class Object>
FileContent fileOf(std::string const& path, Object const& object) {
  nlohmann::json json;
  object.write(json);
  return {path, jsonText(json)};
}

/// Shows the figures of a calibration and writes its files together, the object last: it stands there only
/// with the report and the plot that belong to it.
/// @param pitch of the target, mm
template <class SomeCalibration>
void finish(CalibrateOptions const& options, SomeCalibration const& calibration, double pitch,
            Report& report) {
  std::cout << table(calibration);
  warnOfFindings(calibration, report);
  if (!options.overlays.empty()) {
    writeViewOverlays(options.folder, options.overlays, calibration, pitch, options.look.drawSettings(),
                      options.names);
  }
  report.add(mv::toJson(calibration));
  if (report.isPageWanted()) {
    report.page().subtitle = std::filesystem::weakly_canonical(options.folder).filename().string();
    describeCalibration(report.page(), calibration);
  }
  std::vector<FileContent> files = report.takeFiles();
  if (!options.plot.empty()) {
    files.push_back(
        {options.plot, encodedFigure(options.plot, plotsOf(calibration, options.look.ground()), plotsARow)});
  }
  files.push_back(fileOf(options.output, calibration.object));
  writeTogether(files);
}

/// The same of two cameras and a projector: one report, three objects.
void finish(CalibrateOptions const& options, mv::RigCalibration const& rig, double pitch, Report& report) {
  std::cout << table(rig);
  warnOfFindings(rig.scanner, report, "first camera and projector: ");
  warnOfFindings(rig.second, report, "second camera and projector: ");
  warnOfFindings(rig.pair, report, "both cameras: ");
  if (!options.overlays.empty()) {
    writeViewOverlays(options.folder, options.overlays, rig.scanner, pitch, options.look.drawSettings(),
                      options.names);
    writeViewOverlays(secondCameraFolder(options.folder),
                      (std::filesystem::path(options.overlays) / "second").string(), rig.second, pitch,
                      options.look.drawSettings(), options.names);
  }
  report.add(toJson(rig));
  if (report.isPageWanted()) {
    report.page().subtitle = std::filesystem::weakly_canonical(options.folder).filename().string();
    describeCalibration(report.page(), rig.scanner);
    addErrorPlots(report.page(), rig.second);
    addErrorPlots(report.page(), rig.pair);
  }
  std::vector<FileContent> files = report.takeFiles();
  if (!options.plot.empty()) {
    std::vector<mv::Plot> plots = plotsOf(rig.scanner, options.look.ground());
    std::vector<mv::Plot> const more = plotsOf(rig.second, options.look.ground());
    plots.insert(plots.end(), more.begin(), more.end());
    files.push_back({options.plot, encodedFigure(options.plot, plots, plotsARow)});
  }
  files.push_back(fileOf(options.pairOutput, rig.pair.object));
  files.push_back(fileOf(options.secondOutput, rig.second.object));
  files.push_back(fileOf(options.output, rig.scanner.object));
  writeTogether(files);
}

std::vector<std::string> prefixesOf(CalibrateOptions const& options) {
  if (options.isLaser) {
    return {"target", "line"};
  }
  return options.isStereo || options.isCamera ? std::vector<std::string>{"target"}
                                              : std::vector<std::string>{"target", "columns", "rows"};
}

std::vector<std::string> inputsOf(CalibrateOptions const& options) {
  bool const isScanner = !options.isLaser && !options.isStereo && !options.isCamera;
  std::vector<std::string> files =
      isScanner && !patternSetFileOf(options.folder).empty()
          ? patternViewFiles(options.folder)
          : calibrationPictures(options.folder, prefixesOf(options), options.names);
  if (options.isRig) {
    std::vector<std::string> const more =
        calibrationPictures(secondCameraFolder(options.folder), prefixesOf(options), options.names);
    files.insert(files.end(), more.begin(), more.end());
  }
  return files;
}

/// Whether the detector finds a described target as it is described.
bool isForDetector(mv::TargetDescription const& target) {
  return target.hasCornerMarks() && target.deviations.empty();
}

/// Takes the description of the target that lies with the views. A pitch that is given goes before the
/// file's; the detector's own properties, where some are set, need its kind of target.
void applyFound(mv::CalibrationSettings& settings, std::string const& file, CalibrateOptions const& options,
                Report& report) {
  auto target = readTarget(file);
  double const given = options.pitch.given(options.assignments);
  std::cout << "Target: " << file << ", pitch " << target.pitch << " mm\n";
  if (given > 0 && given != target.pitch) {
    std::ostringstream text;
    text << "the pitch is taken as " << given << " mm, as given, and " << file << " says " << target.pitch
         << " mm";
    report.warn(text.str());
    target.pitch = given;
  }
  if (options.assignments.empty()) {
    settings.target = target;
  } else if (isForDetector(target)) {
    settings.detector["PatternDim"] = target.pitch;
  } else {
    throw Exception("The detector, whose properties --set sets, does not find the target that " + file +
                        " describes; leave --set out",
                    nullptr, 0, "calibrate");
  }
}

/// How the target is found, from the options or from the description that lies with the views. Returns the
/// file of the description; empty when there is none.
std::string chooseTarget(mv::CalibrationSettings& settings, CalibrateOptions const& options, Report& report) {
  applyAssignments(settings.detector, options.assignments);
  if (options.target.isGiven()) {
    if (options.target.file().empty()) {
      options.pitch.require(options.assignments);
    }
    settings.target = options.target.description(options.pitch.pitch);
    return options.target.file();
  }
  std::string const file = targetFileOf(options.folder);
  if (file.empty()) {
    options.pitch.require(options.assignments);
    options.pitch.apply(settings.detector, options.assignments);
  } else {
    applyFound(settings, file, options, report);
  }
  return file;
}

/// Results in metres are right, but what is said of them and drawn is not.
void warnOfMetres(mv::CalibrationSettings const& settings, Report& report) {
  constexpr double leastUsual = 0.1;
  constexpr double millimetres = 1000.0; // of a metre
  double const pitch =
      settings.target ? settings.target->pitch : settings.detector["PatternDim"].getValue().toDouble();
  if (pitch < leastUsual) {
    std::ostringstream text;
    text << "the pitch is " << pitch << " mm; if that is metres, give " << millimetres * pitch
         << ": reports and pictures take all lengths for millimetres";
    report.warn(text.str());
  }
}

/// @throws Exception for names that cannot be all that is needed
void checkNames(CalibrateOptions const& options) {
  std::size_t const wanted = options.isStereo ? 2 : 1;
  if (options.names.targets.size() < wanted) {
    throw Exception("Two cameras take two names of the target's pictures", nullptr, 0, "--target-image");
  }
  bool const isNamed = !options.names.columns.empty() || !options.names.rows.empty();
  if (isNamed && (options.isStereo || options.isCamera)) {
    throw Exception("Cameras are calibrated without a projector's sequences", nullptr, 0,
                    "--columns, --rows");
  }
  if (isNamed && !options.isRig && !patternSetFileOf(options.folder).empty()) {
    throw Exception(patternSetFileOf(options.folder) + " names the images of its set", nullptr, 0,
                    "--columns, --rows");
  }
}

/// Takes the cameras that were calibrated elsewhere.
void applyCameras(mv::CalibrationSettings& settings, CalibrateOptions const& options) {
  if (options.isHeld && options.camera.empty() && options.camera1.empty()) {
    throw CLI::RequiresError("--hold", "--camera-model");
  }
  if (!options.camera.empty()) {
    settings.camera = readCamera(options.camera);
    settings.adjustment.holdCamera0 = options.isHeld;
  }
  if (!options.camera1.empty()) {
    settings.camera1 = readCamera(options.camera1);
    settings.adjustment.holdCamera1 = options.isHeld;
  }
}

mv::AdjustmentSettings::Shape shapeOf(std::string const& name) {
  using Shape = mv::AdjustmentSettings::Shape;
  static std::map<std::string, Shape> const shapes{
      {"auto", Shape::Auto}, {"flat", Shape::Flat}, {"smooth", Shape::Smooth}, {"dots", Shape::Dots}};
  return shapes.at(name);
}

/// Notes what the target was found by.
void note(mv::CalibrationSettings const& settings, Report& report) {
  if (settings.target) {
    settings.target->write(report["target"]);
  } else {
    report.addProperties(settings.detector);
  }
}

} // namespace

void runCalibration(CalibrateOptions const& options, Report& report) {
  checkNames(options);
  mv::CalibrationSettings settings;
  std::string const targetFile = chooseTarget(settings, options, report);
  warnOfMetres(settings, report);
  std::vector<std::string> inputs = inputsOf(options);
  for (std::string const& file : {targetFile, options.camera, options.camera1}) {
    if (!file.empty()) {
      inputs.push_back(file);
    }
  }
  report.wantPage(options.page);
  report.declare(inputs, {options.output, options.pairOutput, options.secondOutput, options.plot});
  checkFigurePath(options.plot);
  if (!options.projector.empty()) {
    settings.projector = parsePixels(options.projector, "--projector");
  }
  applyCameras(settings, options);
  note(settings, report);
  settings.isAdjusted = options.isAdjusted;
  settings.isRefused = options.isRefused;
  settings.adjustment.shape = shapeOf(options.shape);
  if (options.hasPrism) {
    settings.adjustment.lens = mv::AdjustmentSettings::Lens::ThinPrism;
  }
  settings.line.minContrast = options.contrast;
  settings.whiteLevel = options.whiteLevel;
  settings.laserColor = parseLaserColor(options.laserColor);
  double const pitch =
      settings.target ? settings.target->pitch : settings.detector["PatternDim"].getValue().toDouble();
  if (options.isRig) {
    mv::RigCalibration const rig =
        watched([&](Observer* bar) { return calibrateRig(options.folder, settings, bar, options.names); });
    finish(options, rig, pitch, report);
  } else if (options.isLaser) {
    mv::LaserCalibration const calibration =
        watched([&](Observer* bar) { return calibrateLaser(options.folder, settings, bar, options.names); });
    finish(options, calibration, pitch, report);
  } else if (options.isCamera) {
    mv::CameraCalibration const calibration =
        watched([&](Observer* bar) { return calibrateCamera(options.folder, settings, bar, options.names); });
    finish(options, calibration, pitch, report);
  } else if (options.isStereo) {
    mv::StereoCalibration const calibration =
        watched([&](Observer* bar) { return calibrateStereo(options.folder, settings, bar, options.names); });
    finish(options, calibration, pitch, report);
  } else {
    mv::ScannerCalibration const calibration = watched(
        [&](Observer* bar) { return calibrateScanner(options.folder, settings, bar, options.names); });
    finish(options, calibration, pitch, report);
  }
}

} // namespace vorn::tools
