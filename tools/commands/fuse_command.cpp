// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/json_file.hpp>
#include <vorn/mv/registration/register_views.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>
#include <vorn/mv/surface/fuse.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/camera_input.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/view_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/fusion_report.hpp"
#include "tools/report/page_options.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct FuseOptions {
  std::string folder;
  std::string output;
  std::string calibration;
  mv::FuseSettings settings;
  bool isRegistering = true;
  PageOptions page;
};

/// The points of a view, with its pose pending.
mv::PointCloud readView(ViewEntry const& view, mv::Sl3dScanner& scanner, Observer* observer) {
  mv::PointCloud cloud;
  if (view.isScan) {
    std::vector<cv::Mat> const images = readSequence(view.path, "columns");
    mv::ScanSettings settings;
    settings.makeModulation = settings.makeSigma = false;
    cloud = mv::scan(scanner, images, settings, observer).cloud;
  } else {
    cloud = readCloudInput(view.path).cloud;
  }
  if (cloud.presentCount() == 0) {
    throw Exception(view.path + " has no points", nullptr, 0, "fuse");
  }
  cloud.setTransform(view.commonFromView);
  return cloud;
}

std::vector<mv::PointCloud> readViews(FuseOptions const& options, std::vector<ViewEntry> const& entries) {
  mv::Sl3dScanner scanner;
  if (!options.calibration.empty()) {
    loadScanner(options.calibration, scanner);
  }
  return watched([&](Observer* observer) {
    std::vector<mv::PointCloud> views;
    for (ViewEntry const& entry : entries) {
      tell(observer, "reading views", views.size(), entries.size());
      views.push_back(readView(entry, scanner, nullptr));
    }
    return views;
  });
}

void declareInputs(FuseOptions const& options, std::vector<ViewEntry> const& entries, Report& report) {
  std::vector<std::string> inputs{options.calibration};
  if (std::filesystem::exists(viewsPath(options.folder))) {
    inputs.push_back(viewsPath(options.folder));
  }
  for (ViewEntry const& entry : entries) {
    if (!entry.isScan) {
      inputs.push_back(entry.path);
      continue;
    }
    for (NumberedFile const& file : findSequence(entry.path, "columns")) {
      inputs.push_back(file.path);
    }
  }
  report.declare(inputs, {options.output});
}

/// Finds where the views lie, from their poses on.
void registerAll(std::vector<mv::PointCloud>& views, std::vector<ViewEntry> const& entries, Report& report) {
  mv::ViewsSettings settings;
  for (mv::PointCloud const& view : views) {
    settings.frameFromView.push_back(view.getTransform());
  }
  mv::ViewsRegistration const found =
      watched([&](Observer* observer) { return registerViews(views, settings, observer); });
  reportRegistration(found, report);
  if (found.stop == mv::RegistrationStop::NoOverlap) {
    report.warn("registration found no two views that overlap: they lie where their poses say");
    return;
  }
  for (std::vector<std::size_t> const& group : found.groups) {
    if (!found.isConnected() && group != found.groups.front()) {
      report.warn(entries[group.front()].name + (group.size() > 1 ? " and those that overlap it" : "") +
                  " overlap no view of the others: they lie where their poses say");
    }
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    views[i].setTransform(found.views[i].frameFromView);
  }
}

void run(FuseOptions const& options, Report& report) {
  checkGraphicPath(options.output);
  if (!options.calibration.empty()) {
    checkInputFile(options.calibration);
  }
  std::vector<ViewEntry> const entries = findViews(options.folder, !options.calibration.empty());
  declareInputs(options, entries, report);
  if (entries.size() > 1 &&
      std::none_of(entries.begin(), entries.end(), [](ViewEntry const& entry) { return entry.hasPose; })) {
    report.warn("no view of " + options.folder +
                " has a pose (views.json): their points are taken to be in one frame");
  }
  std::vector<mv::PointCloud> views = readViews(options, entries);
  if (options.isRegistering && views.size() > 1) {
    registerAll(views, entries, report);
  }
  mv::Fusion const fusion =
      watched([&](Observer* observer) { return fuse(views, options.settings, observer); });
  std::vector<std::string> names;
  for (ViewEntry const& entry : entries) {
    names.push_back(entry.name);
  }
  reportFusion(fusion, names, report);
  graphic::GraphicObject object = fusedObject(fusion);
  if (report.isPageWanted()) {
    fillFusionPage(fusion, std::filesystem::weakly_canonical(options.folder).filename().string(), views,
                   names, report);
  }
  if (!holdsTriangles(options.output)) {
    object.triangles().clear();
  }
  writeGraphic(options.output, object);
}

void addLengths(CLI::App& command, mv::FuseSettings& settings) {
  auto const add = [&](char const* name, double& length, char const* help) {
    command.add_option(name, length, help)->type_name("MM")->check(notBelowZero())->capture_default_str();
  };
  add("--spacing", settings.spacing, "Distance of the result's points; 0: that of the densest view");
  add("--reach", settings.reach,
      "Skins farther apart than this are different surfaces; 0: six times the noise, at least half a "
      "spacing");
  add("--max-edge", settings.maxEdge,
      "Points farther apart are not joined; 0: three spacings, more for lists spread by chance");
  add("--close", settings.closeHoles, "Close holes with a rim up to this long; 0 closes none");
}

} // namespace

void addFuseCommand(CLI::App& app) {
  auto options = std::make_shared<FuseOptions>();
  CLI::App* command = app.add_subcommand("fuse", "Make one surface of several views of a part");
  command
      ->add_option("folder", options->folder,
                   "Folder with the views: clouds (tiff, ply, pcd, xyz, obj) or, with --calib, folders of "
                   "images, and views.json with their poses")
      ->required();
  command
      ->add_option("-o,--out", options->output,
                   "Surface to write (ply, obj, stl), or its points alone (pcd, xyz)")
      ->required();
  command->add_option("--calib", options->calibration,
                      "The calibrated scanner, a JSON file, to scan views that are images");
  command->add_flag("!--no-register", options->isRegistering,
                    "Take the poses as they are; else they are where registration begins");
  addLengths(*command, options->settings);
  options->page.addTo(*command);
  setWork(
      *command,
      [options](Report& report) {
        report.wantPage(options->page);
        run(*options, report);
      },
      "--report", "what the surface measures, and how each view fits");
}

} // namespace vorn::tools
