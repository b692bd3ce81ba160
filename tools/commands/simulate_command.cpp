// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/calib/target_description.hpp>

#include <sim/demo.hpp>
#include <sim/faults.hpp>
#include <sim/folder.hpp>
#include <sim/folder_writer.hpp>
#include <sim/line.hpp>
#include <sim/part.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/simulated_target.hpp"
#include "tools/files/image_files.hpp"
#include "tools/progress.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct SimulateOptions {
  std::string folder;
  bool withCalibration = true;
  bool withRows = false;
  bool withSecondCamera = false;
  bool isStereo = false;
  bool isLaser = false;
  /// Parts of a production line in place of the one scene; 0 for none.
  int lineParts = 0;
  /// Sides from which a part is scanned, in place of the one scene; 0 for none.
  int views = 0;
  bool isTurntable = false;
  int divisor = 1;
  /// Of the target in the views, one of `simulatedKinds`.
  std::string kind = simulatedKinds().front();
  /// What goes wrong, in words.
  std::vector<std::string> faults;
};

/// What is wrong with the words for a fault; empty when nothing is.
std::string faultError(std::string const& words) {
  try {
    (void)sim::faultOf(words);
  } catch (std::invalid_argument const& e) {
    return e.what();
  }
  return "";
}

std::vector<sim::Fault> faultsOf(SimulateOptions const& options) {
  std::vector<sim::Fault> faults;
  for (std::string const& words : options.faults) {
    faults.push_back(sim::faultOf(words));
  }
  return faults;
}

sim::FolderOptions following(std::string const& what) {
  sim::FolderOptions rendering;
  rendering.progress = followFolder(what);
  return rendering;
}

/// Writes the description of the target in the views, by which they are calibrated.
void writeDescription(std::filesystem::path const& folder, SimulatedTarget const& target) {
  save((folder / "target.json").string(), target.description);
}

/// The line that says where the target views are.
std::string viewsNote(SimulatedTarget const& target, std::size_t width, std::string const& what) {
  std::ostringstream text;
  text << "  " << std::left << std::setw(static_cast<int>(width)) << "calib/" << what << ", pitch "
       << target.description.pitch << " mm\n  " << std::setw(static_cast<int>(width)) << "target.json"
       << "the target in the views\n";
  return text.str();
}

void simulateStereo(SimulateOptions const& options) {
  sim::StereoRig const rig = sim::demoStereoRig(options.divisor);
  std::filesystem::path const folder = options.folder;
  SimulatedTarget const target = simulatedTarget(options.kind);
  sim::writeStereoTruth((folder / "stereo_truth.json").string(), rig);
  sim::writeStereoFolder((folder / "calib").string(), rig, target.target, target.poses(),
                         following("rendering the target views"));
  writeDescription(folder, target);
  std::cout << "In " << options.folder << ":\n"
            << viewsNote(target, 19, "target views of both cameras")
            << "  stereo_truth.json  the true calibration\n";
}

void simulateLaser(SimulateOptions const& options) {
  sim::LaserRig const rig = sim::demoLaserRig(options.divisor);
  std::filesystem::path const folder = options.folder;
  sim::writeLaserTruth((folder / "laser_truth.json").string(), rig);
  // The scene passes the line from end to end.
  sim::Stage const stage{{0, 3.0 * options.divisor, 0}, 100 / options.divisor + 1};
  sim::Scene const atStart =
      sim::demoScene().moved({cv::Matx33d::eye(), stage.step * (-0.5 * (stage.images - 1))});
  sim::writeLaserScanFolder((folder / "scan").string(), rig, atStart, stage, following("rendering the scan"));
  std::string note;
  if (options.withCalibration) {
    SimulatedTarget const target = simulatedTarget(options.kind);
    sim::writeLaserCalibrationFolder((folder / "calib").string(), rig, target.target, target.poses(),
                                     following("rendering the target views"));
    writeDescription(folder, target);
    note = viewsNote(target, 18, "target views to calibrate from");
  }
  std::cout << "In " << options.folder << ":\n"
            << "  scan/             images of a laser line that a stage carries over the scene\n"
            << note << "  laser_truth.json  the true calibration\n";
}

/// The rig's views of the target and its scan, with what goes wrong.
sim::Campaign campaignOf(sim::Rig const& rig, SimulateOptions const& options) {
  SimulatedTarget const target = simulatedTarget(options.kind);
  sim::Campaign campaign = sim::plannedCampaign(rig, target.target, target.poses());
  for (sim::Fault const& fault : faultsOf(options)) {
    sim::spoil(campaign, fault);
  }
  return campaign;
}

/// Writes the target views if they are wanted.
void simulateCalibration(sim::Rig const& rig, std::filesystem::path const& folder,
                         SimulateOptions const& options) {
  if (!options.withCalibration) {
    return;
  }
  sim::FolderOptions calibration = following("rendering the target views");
  calibration.rows = true;
  sim::writeCalibrationFolder((folder / "calib").string(), campaignOf(rig, options), faultsOf(options),
                              calibration);
  writeDescription(folder, simulatedTarget(options.kind));
}

/// The lines that say where the target views are, if any.
std::string calibrationNote(SimulateOptions const& options) {
  return options.withCalibration
             ? viewsNote(simulatedTarget(options.kind), 20, "target views to calibrate from")
             : "";
}

void simulateScanner(sim::Rig const& rig, std::filesystem::path const& folder,
                     SimulateOptions const& options) {
  sim::writeScannerTruth((folder / "scanner_truth.json").string(), rig);

  sim::FolderOptions scan;
  scan.rows = options.withRows;
  scan.progress = followFolder("rendering the scan");
  sim::writeScanFolder((folder / "scan").string(), campaignOf(rig, options).scanRig, sim::demoScene(), scan);

  simulateCalibration(rig, folder, options);
  std::cout << "In " << folder.string() << ":\n"
            << "  scan/               captured images of one scan, with their truth\n"
            << calibrationNote(options) << "  scanner_truth.json  the true calibration\n";
}

/// part_01 for the first of 50.
std::string partName(int index, int count) {
  std::ostringstream name;
  name << "part_" << std::setfill('0') << std::setw(static_cast<int>(std::to_string(count).size()))
       << index + 1;
  return name.str();
}

void simulateLine(SimulateOptions const& options) {
  sim::Rig rig = sim::demoRig(options.divisor);
  std::filesystem::path const folder = options.folder;
  sim::writeScannerTruth((folder / "scanner_truth.json").string(), rig);
  std::vector<sim::LinePart> const parts = sim::lineParts(options.lineParts);
  sim::FolderWriter(folder.string()).json("line_truth.json", sim::linePartsJson(parts));
  auto const follow = followFolder("rendering the parts");
  for (int i = 0; i < options.lineParts; ++i) {
    sim::FolderOptions scan;
    scan.truth = false;
    ++rig.camera.sensor.seed; // every scan has noise of its own
    sim::writeScanFolder((folder / partName(i, options.lineParts)).string(), rig, sim::lineScene(parts[i]),
                         scan);
    follow(i + 1, options.lineParts);
  }
  simulateCalibration(sim::demoRig(options.divisor), folder, options);
  std::cout << "In " << options.folder << ":\n"
            << "  " << std::left << std::setw(20) << partName(0, options.lineParts) + " ..."
            << "captured images of " << options.lineParts << " parts\n"
            << "  line_truth.json     their heights and faults\n"
            << calibrationNote(options) << "  scanner_truth.json  the true calibration\n";
}

void simulateViews(SimulateOptions const& options) {
  sim::Rig rig = sim::demoRig(options.divisor);
  std::filesystem::path const folder = options.folder;
  sim::writeScannerTruth((folder / "scanner_truth.json").string(), rig);
  std::vector<sim::Pose> const poses =
      sim::partPoses(options.views, options.isTurntable ? sim::PartMotion::Turntable : sim::PartMotion::Free);
  sim::FolderWriter(folder.string()).json("views.json", sim::partPosesJson(poses));
  auto const follow = followFolder("rendering the views");
  for (int i = 0; i < options.views; ++i) {
    sim::FolderOptions scan;
    scan.rows = options.withRows;
    ++rig.camera.sensor.seed; // every scan has noise of its own
    sim::writeScanFolder((folder / sim::partViewName(i)).string(), rig,
                         sim::partScene().moved(poses[static_cast<std::size_t>(i)]), scan);
    follow(i + 1, options.views);
  }
  simulateCalibration(sim::demoRig(options.divisor), folder, options);
  std::cout << "In " << options.folder << ":\n"
            << "  view_00 ...         captured images of a part from " << options.views << " sides\n"
            << "  views.json          where each view truly is\n"
            << calibrationNote(options) << "  scanner_truth.json  the true calibration\n";
}

void run(SimulateOptions const& options, Report& report) {
  // Refuses faults and targets that there are not before anything is made.
  campaignOf(sim::demoRig(options.divisor), options);
  makeFolder(options.folder);
  report.declare({}, {});
  report["folder"] = options.folder;
  if (options.withCalibration) {
    report["kind"] = options.kind;
  }
  report["rig"] = options.isLaser ? "laser" : options.isStereo ? "stereo" : "scanner";
  if (!options.faults.empty()) {
    report["faults"] = options.faults;
  }
  if (options.isLaser) {
    simulateLaser(options);
  } else if (options.isStereo) {
    simulateStereo(options);
  } else if (options.lineParts > 0) {
    report["parts"] = options.lineParts;
    simulateLine(options);
  } else if (options.views > 0) {
    report["views"] = options.views;
    simulateViews(options);
  } else {
    std::filesystem::path const folder = options.folder;
    simulateScanner(sim::demoRig(options.divisor), folder, options);
    if (options.withSecondCamera) {
      makeFolder((folder / "second").string());
      simulateScanner(sim::demoSecondRig(options.divisor), folder / "second", options);
    }
  }
}

} // namespace

void addSimulateCommand(CLI::App& app) {
  auto options = std::make_shared<SimulateOptions>();
  CLI::App* command =
      app.add_subcommand("simulate", "Render what a rig would capture: a scan, target views, and the truth");
  command->add_option("folder", options->folder, "Folder to write to; made if need be")->required();
  CLI::Option* noCalibration =
      command->add_flag("!--no-calib", options->withCalibration, "Leave out the target views");
  CLI::Option* stereo =
      command->add_flag("--stereo", options->isStereo, "Two cameras in place of camera and projector")
          ->excludes(noCalibration);
  CLI::Option* laser =
      command->add_flag("--laser", options->isLaser, "A laser line and a stage in place of a projector")
          ->excludes(stereo);
  CLI::Option* rows = command->add_flag("--rows", options->withRows, "Also the row sequence of the scan")
                          ->excludes(stereo)
                          ->excludes(laser);
  CLI::Option* second =
      command
          ->add_flag("--second-camera", options->withSecondCamera,
                     "Also what a camera on the projector's other side sees of the same, in second/")
          ->excludes(stereo)
          ->excludes(laser);
  constexpr int mostParts = 10000;
  CLI::Option* line =
      command
          ->add_option(
              "--line", options->lineParts,
              "Scans of this many parts of a production line, part_01 ..., in place of the one scan: "
              "a height drifts, and two parts of ten or more are faulty")
          ->transform(between(1, mostParts))
          ->excludes(stereo)
          ->excludes(laser)
          ->excludes(rows)
          ->excludes(second);
  constexpr int mostViews = 100;
  CLI::Option* views =
      command
          ->add_option("--views", options->views,
                       "Scans of a part from this many sides, view_00 ..., in place of the one scan, as put "
                       "there by hand")
          ->transform(between(1, mostViews))
          ->excludes(stereo)
          ->excludes(laser)
          ->excludes(second)
          ->excludes(line);
  command->add_flag("--turntable", options->isTurntable, "The part of --views is turned about one axis")
      ->needs(views);
  command
      ->add_option("--fault", options->faults,
                   "Something that goes wrong with the target views, as projector-turned=0.03@5: a name, its "
                   "strength, the view; several may be given. An unknown name shows them all")
      ->allow_extra_args(false)
      ->check(faultError)
      ->excludes(stereo)
      ->excludes(laser)
      ->excludes(noCalibration)
      ->excludes(line)
      ->excludes(views);
  command
      ->add_option("--kind", options->kind,
                   "What the target's points are, in the target views; their target.json says more")
      ->check(CLI::IsMember(simulatedKinds()))
      ->capture_default_str()
      ->excludes(noCalibration);
  constexpr int coarsest = 8;
  command->add_option("--divisor", options->divisor, "Divide the numbers of pixels by this")
      ->transform(between(1, coarsest))
      ->capture_default_str();
  setWork(*command, [options](Report& report) { run(*options, report); });
}

} // namespace vorn::tools
