// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <utility>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <sim/demo.hpp>
#include <sim/folder.hpp>
#include <sim/render.hpp>
#include <sim/truth.hpp>
#include <sim/truth_json.hpp>

#include <vorn/mv/sl/patterns.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/calibration/calibration_page.hpp"
#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/folder_calibration.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/part_demo.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/page_options.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/work.hpp"
#include "tools/scan/preview.hpp"
#include "tools/scan/scan_page.hpp"
#include "tools/scan/scan_report.hpp"
#include "tools/scan/truth_comparison.hpp"

namespace vorn::tools {

namespace {

struct DemoOptions {
  std::string out = "demo";
  int divisor = 1;
  bool isCalibrating = true;
  bool isPart = false; ///< a part from several sides in place of the one scene
  PageOptions page;
};

/// What the rig's camera captures of a scene while the column sequence is projected.
struct Capture {
  std::vector<cv::Mat> images;
  sim::Truth truth;
  cv::Mat_<uchar> mask;
};

Capture capture(sim::Rig const& rig, sim::Scene const& scene) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  mv::generate_ps4_patterns(columns, rows, rig.projector.device.resolution());
  sim::ProjectorView const view(rig.camera, rig.projector, scene);
  Capture result;
  result.images = view.capture(columns);
  result.truth = sim::truth(rig.camera, rig.projector, scene);
  constexpr int phaseSteps = 4;
  std::vector<cv::Mat> const fringes(columns.begin(), columns.begin() + phaseSteps);
  result.mask = sim::truthMask(result.truth, sim::signal(rig.camera.sensor, view.expose(fringes)));
  return result;
}

/// Renders views of the target, as a user would photograph them, and calibrates from their files.
mv::Sl3dScanner calibrated(sim::Rig const& rig, std::filesystem::path const& folder, Report& report) {
  sim::Target const target = sim::demoTarget();
  sim::FolderOptions rendering;
  rendering.rows = true;
  rendering.truth = false;
  // Dots are drawn exactly whatever the number of rays.
  rendering.render.supersample = 1;
  rendering.progress = followFolder("rendering the target views");
  std::vector<sim::Pose> const poses = sim::demoTargetPoses();
  std::cout << "Calibrating from " << poses.size() << " views of a target" << std::endl;
  sim::writeCalibrationFolder(folder.string(), rig, target, poses, rendering);

  mv::CalibrationSettings settings;
  settings.detector["PatternDim"] = target.grid.pitch;
  settings.projector = rig.projector.device.resolution();
  mv::ScannerCalibration const calibration =
      watched([&](Observer* bar) { return calibrateScanner(folder.string(), settings, bar); });
  std::cout << table(calibration);
  report["calibration"] = mv::toJson(calibration);
  if (report.isPageWanted()) {
    addErrorPlots(report.page(), calibration);
  }
  return calibration.object;
}

mv::Sl3dScanner trulyCalibrated(sim::Rig const& rig) {
  mv::Sl3dScanner scanner;
  scanner.read(sim::scannerJson(rig));
  return scanner;
}

/// Fills the page with the scan, each clean point with how far it lies from the truth along its ray.
void fillPage(Page& page, mv::ScanResult const& scan, mv::Sl3dScanner const& scanner, Capture const& captured,
              TruthComparison const& comparison, std::vector<ArtefactFigure> const& figures) {
  page.title = "Demo";
  page.subtitle = "A scan of the virtual rig, compared with the truth";
  PageCloud cloud = pageCloud(scan);
  PageField error{"error", "mm", {}, true};
  for (int y = 0; y < scan.mask.rows; ++y) {
    for (int x = 0; x < scan.mask.cols; ++x) {
      if (scan.cloud.state()(y, x) == 0) {
        bool const isClean = captured.mask(y, x) == static_cast<uchar>(sim::TruthMask::Clean);
        double const longer = cv::norm(scan.xyz(y, x)) - cv::norm(captured.truth.x_in_cam(y, x));
        error.values.push_back(isClean ? static_cast<float>(longer)
                                       : std::numeric_limits<float>::quiet_NaN());
      }
    }
  }
  cloud.fields.push_back(std::move(error));
  cloud.coloredBy = "error";
  page.add(cloud);
  PageTable table;
  table.title = "Against the truth";
  table.rows = {{"clean pixels", countText(comparison.expected)},
                {"measured of them", countText(comparison.measured)},
                {"error, RMS [mm]", figure(comparison.rms)},
                {"median [mm]", figure(comparison.median)},
                {"95 % are below [mm]", figure(comparison.error95)},
                {"worst [mm]", figure(comparison.worst)}};
  for (ArtefactFigure const& measured : figures) {
    table.rows.push_back({measured.what + " [mm]", figure(measured.value)});
  }
  page.tables.push_back(table);
  describeScan(page, scan, scanner, "column");
}

void demonstrateScene(DemoOptions const& options, sim::Rig const& rig, mv::Sl3dScanner& scanner,
                      Report& report) {
  std::filesystem::path const folder = options.out;
  sim::Scene const scene = sim::demoScene();
  std::cout << "Scanning a scene" << std::endl;
  Capture const captured = capture(rig, scene);
  mv::ScanResult const scan =
      watched([&](Observer* bar) { return mv::scan(scanner, captured.images, {}, bar); });
  std::cout << scan.counts.points << " points from " << captured.images.size() << " images; decoded in "
            << std::lround(scan.times.decode) << " ms, triangulated in "
            << std::lround(scan.times.triangulate) << " ms\n";
  TruthComparison const comparison = compareWithTruth(scan.xyz, captured.truth, captured.mask);
  std::vector<ArtefactFigure> const figures =
      measureArtefacts(scan.xyz, captured.truth, captured.mask, scene);
  printComparison(comparison, figures);

  writeGraphic((folder / "scan.ply").string(), scan.cloud.getGraphicObject(true));
  writeFigure((folder / "scan.png").string(),
              drawRelief(scan.xyz, {}, "demo: " + std::to_string(scan.counts.points) + " points"));
  constexpr auto period = static_cast<float>(mv::sl::columnCode.period);
  writeFigure((folder / "map.png").string(), drawDecodedMap(scan.map, period, "column", "decoded columns"));
  report.add(scanReport(scan));
  report["images"] = captured.images.size();
  report["truth"] = comparisonReport(comparison, figures);
  if (report.isPageWanted()) {
    fillPage(report.page(), scan, scanner, captured, comparison, figures);
  }
  std::cout << "In " << options.out << ": scan.ply, its picture scan.png, the decoded map.png, scanner.json, "
            << "report.json\n";
}

void run(DemoOptions const& options, Report& report) {
  makeFolder(options.out);
  report.wantPage(options.page);
  report.declare({}, {});
  std::filesystem::path const folder = options.out;
  sim::Rig const rig = sim::demoRig(options.divisor);
  std::cout << "The virtual rig: camera " << sizeText(rig.camera.device.resolution()) << ", projector "
            << sizeText(rig.projector.device.resolution()) << " pixels\n";
  mv::Sl3dScanner scanner =
      options.isCalibrating ? calibrated(rig, folder / "calib", report) : trulyCalibrated(rig);
  report.addProperties(scanner);

  save((folder / "scanner.json").string(), scanner);
  if (options.isPart) {
    demonstratePart(rig, scanner, folder, report);
    std::cout << "In " << options.out
              << ": part.ply, its picture part.png, views/, scanner.json, report.json\n";
  } else {
    demonstrateScene(options, rig, scanner, report);
  }
  report.alsoWriteTo((folder / "report.json").string());
}

} // namespace

void addDemoCommand(CLI::App& app) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* command =
      app.add_subcommand("demo", "Scan with the virtual rig and compare with the exact truth");
  command->add_option("-o,--out", options->out, "Folder for the results; made if need be")
      ->capture_default_str();
  constexpr int coarsest = 2; // beyond it the dots of the target are too small to be found
  command->add_option("--divisor", options->divisor, "Divide the rig's numbers of pixels by this")
      ->transform(between(1, coarsest))
      ->capture_default_str();
  command->add_flag("!--true-calibration", options->isCalibrating,
                    "Scan with the rig's true calibration instead of calibrating first");
  command->add_flag("--part", options->isPart,
                    "Scan a part from eight sides, and fuse the views to one surface");
  options->page.addTo(*command);
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report", "the figures");
}

} // namespace vorn::tools
