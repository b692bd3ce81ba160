// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/scanner/check_scan.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/scanner_type.hpp>

#include "tools/commands/check_length.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/files/camera_input.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/pattern_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/check_report.hpp"
#include "tools/report/page_options.hpp"
#include "tools/report/work.hpp"
#include "tools/scan/pattern_doubts.hpp"
#include "tools/scan/scan_report.hpp"
#include "tools/scan/sequence_count.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

struct CheckOptions {
  std::string folder;
  std::string calibration;
  mv::ScanCheckSettings settings;
  LengthOptions length;
  std::vector<std::string> columns; ///< names of the images; none for columns_00.png ...
  std::vector<std::string> rows;
  std::string repair;
  PageOptions page;
  std::vector<std::string> assignments;
};

/// A scan's coordinates, and its points by the coordinate that the scanner takes.
struct Coordinates {
  cv::Mat_<float> columns;
  cv::Mat_<float> rows;
  cv::Mat_<cv::Vec3f> xyz;
  cv::Mat_<float> modulation; ///< the scene as the projector lights it
};

mv::ScanSettings plainScan() {
  mv::ScanSettings settings;
  settings.makeTexture = settings.makeSigma = false;
  return settings;
}

/// The names that were given for a sequence.
std::vector<std::string> const& namesOf(CheckOptions const& options, std::string const& prefix) {
  return prefix == "columns" ? options.columns : options.rows;
}

std::vector<std::string> sequencePaths(CheckOptions const& options, std::string const& prefix) {
  std::string const& folder = options.folder;
  if (!namesOf(options, prefix).empty()) {
    return namedFiles(folder, namesOf(options, prefix));
  }
  std::vector<std::string> paths;
  for (NumberedFile const& file : findSequence(folder, prefix)) {
    paths.push_back(file.path);
  }
  if (paths.empty()) {
    throw Exception(folder + " has no pictures " + prefix +
                        "_00.png, ...: a calibration is checked by a scan that has columns and rows",
                    nullptr, 0, "check");
  }
  return paths;
}

/// @param described the folder's pattern set, where it has one
std::vector<std::string> inputsOf(CheckOptions const& options,
                                  std::optional<PatternFolder> const& described) {
  std::vector<std::string> inputs{options.calibration};
  if (std::string const target = options.length.targetFile(options.folder); !target.empty()) {
    inputs.push_back(target);
  }
  auto const add = [&](std::vector<std::string> const& paths) {
    inputs.insert(inputs.end(), paths.begin(), paths.end());
  };
  if (described) {
    inputs.push_back(described->description);
    add(described->paths);
  } else {
    add(sequencePaths(options, "columns"));
    add(sequencePaths(options, "rows"));
  }
  return inputs;
}

Coordinates decodeOwnSequences(CheckOptions const& options, mv::Sl3dScanner const& scanner, Report& report) {
  bool const isColumn = sequencePrefix(scanner) == "columns";
  auto const read = [&](char const* prefix) {
    std::vector<cv::Mat> images = watched([&](Observer* bar) {
      return namesOf(options, prefix).empty()
                 ? readSequence(options.folder, prefix, readMeasuredImage, bar)
                 : readNamedImages(namedFiles(options.folder, namesOf(options, prefix)), bar);
    });
    requireImageCount(prefix, images.size(), scanner.getProjectorModel().getResolution(), options.folder,
                      "check");
    return images;
  };
  mv::ScanResult const scan = watched([&, images = read(isColumn ? "columns" : "rows")](Observer* bar) {
    return mv::scan(scanner, images, plainScan(), bar);
  });
  mv::Sl3dScanner other = scanner;
  other.setScannerType(isColumn ? mv::scanner::ScannerType::Vertical : mv::scanner::ScannerType::Horizontal);
  mv::ScanResult const crossing = watched([&, images = read(isColumn ? "rows" : "columns")](Observer* bar) {
    return mv::scan(other, images, plainScan(), bar);
  });
  warnOfDoubts(scan.doubts, report);
  warnOfDoubts(crossing.doubts, report);
  cv::Mat_<float> const& across = crossing.map;
  return {isColumn ? scan.map : across, isColumn ? across : scan.map, scan.xyz, scan.modulation};
}

Coordinates decodeSet(PatternFolder const& described, mv::Sl3dScanner& scanner, Report& report) {
  std::vector<cv::Mat> const images =
      watched([&](Observer* bar) { return readPatternImages(described, bar); });
  mv::DecodedPatterns const decoded =
      watched([&](Observer* bar) { return mv::decode_patterns(described.set, images, {}, bar); });
  if (decoded.column.empty() || decoded.row.empty()) {
    throw Exception(described.description + " codes " + (decoded.row.empty() ? "no rows" : "no columns") +
                        ": a calibration is checked by a scan that has columns and rows",
                    nullptr, 0, "check");
  }
  warnOfDoubts(decoded.doubts, report);
  mv::ScanResult const scan =
      watched([&](Observer* bar) { return mv::scanDecoded(scanner, decoded, plainScan(), bar); });
  return {decoded.column, decoded.row, scan.xyz, scan.modulation};
}

void checkOptions(CheckOptions const& options) {
  options.settings.check();
  options.length.check();
}

/// Writes the repaired scanner where that is called for; whether the drift is mended.
bool repairScanner(CheckOptions const& options, mv::Sl3dScanner const& scanner, mv::ScanCheck const& check) {
  if (options.repair.empty()) {
    return false;
  }
  if (check.verdict != mv::ScanVerdict::Drifted) {
    std::cout << "There is nothing to repair: " << options.repair << " is not written\n";
    return false;
  }
  writeJsonFile(options.repair, [&] {
    nlohmann::json json;
    mv::repaired(scanner, check).write(json);
    return json;
  }());
  std::cout << "The repaired calibration is in " << options.repair << '\n';
  return true;
}

void run(CheckOptions const& options, Report& report) {
  checkOptions(options);
  checkInputFile(options.calibration);
  mv::Sl3dScanner scanner;
  loadScanner(options.calibration, scanner);
  applyAssignments(scanner, options.assignments);
  std::optional<PatternFolder> described;
  if (fs::exists(patternSetPath(options.folder))) {
    if (!options.columns.empty() || !options.rows.empty()) {
      throw Exception(patternSetPath(options.folder) + " names the images of its set", nullptr, 0,
                      "--columns, --rows");
    }
    described = readPatternFolder(options.folder, "");
  }
  report.declare(inputsOf(options, described), {options.repair});
  report.addProperties(scanner);
  Coordinates const found =
      described ? decodeSet(*described, scanner, report) : decodeOwnSequences(options, scanner, report);
  mv::ScanCheck const check = watched([&](Observer* bar) {
    return mv::checkScan(scanner, found.columns, found.rows, options.settings, bar);
  });
  report.add(asJson(check));
  std::cout << sentence(check) << '\n';
  bool const isDrifted = check.verdict == mv::ScanVerdict::Drifted;
  if (isDrifted) {
    std::cout << turnSentence(check) << '\n';
  }
  if (report.isPageWanted()) {
    fillCheckPage(check, fs::weakly_canonical(options.folder).filename().string(), report.page());
  }
  std::string const wrongLength =
      measureLength(options.length, options.folder, found.xyz, found.modulation, scanner, report);
  std::string failure = wrongLength;
  try {
    bool const isRepaired = repairScanner(options, scanner, check);
    report["repaired"] = isRepaired;
    if (isDrifted && !isRepaired) {
      failure = "the calibration has drifted" + (failure.empty() ? "" : ", and " + failure);
    }
  } catch (Exception const& e) {
    report["repaired"] = false;
    failure = e.message();
  }
  if (check.verdict == mv::ScanVerdict::Unclear && failure.empty()) {
    failure = check.isTorn ? "too many pixels are outliers to tell"
                           : "the scan is too noisy, or has too few pixels, to tell";
  }
  if (!failure.empty()) { // a report of what is wrong is a report all the same
    report.write();
    throw Exception(options.calibration + " and " + options.folder + ": " + failure, nullptr, 0, "check");
  }
}

} // namespace

void addCheckCommand(CLI::App& app) {
  auto options = std::make_shared<CheckOptions>();
  CLI::App* command = app.add_subcommand(
      "check", "Say whether a scan with columns and rows still agrees with its calibration");
  command
      ->add_option(
          "folder", options->folder,
          "Folder with columns_00.png ... and rows_00.png ..., or with pattern_set.json and the images "
          "that it names")
      ->required();
  command->add_option("--calib", options->calibration, "The calibrated scanner, a JSON file")->required();
  command
      ->add_option("--columns", options->columns,
                   "The images of the column sequence where they have other names: names or patterns (in "
                   "quotes: 'img_*.png') in the folder, or one TIFF file of several pages")
      ->type_name("NAME");
  command->add_option("--rows", options->rows, "The images of the row sequence, likewise")->type_name("NAME");
  command
      ->add_option("--limit", options->settings.limit,
                   "What the smooth part of the disagreement may be, projector pixels")
      ->capture_default_str()
      ->check(aboveZero());
  options->length.addTo(*command);
  command->add_option(
      "--repair", options->repair,
      "Write the calibration with the projector turned back, if it has drifted and that mends it");
  options->page.addTo(*command);
  addSetOption(*command, options->assignments, "scanner", mv::Sl3dScanner());
  setWork(
      *command,
      [options](Report& report) {
        report.wantPage(options->page);
        run(*options, report);
      },
      "--report", "the verdict and its figures");
}

} // namespace vorn::tools
