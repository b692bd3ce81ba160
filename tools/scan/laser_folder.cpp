// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/laser_folder.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/geometry/plane3f.hpp>

#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/output_path.hpp"
#include "tools/scan/scan_report.hpp"

namespace vorn::tools {

namespace {

Exception failure(std::string const& message) {
  return {message, nullptr, 0, "scan"};
}

/// A word of a file that may be anything, for a message.
std::string printable(std::string word) {
  constexpr std::size_t longest = 20;
  if (word.size() > longest) {
    word = word.substr(0, longest) + "...";
  }
  std::replace_if(
      word.begin(), word.end(), [](unsigned char c) { return std::isprint(c) == 0; }, '?');
  return word;
}

std::vector<std::string> wordsIn(std::string text) {
  for (char& c : text) {
    c = c == ',' || c == ';' ? ' ' : c;
  }
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

/// The number that a whole word is; none for anything else.
std::optional<double> numberOf(std::string const& word) {
  try {
    std::size_t end = 0;
    double const value = std::stod(word, &end);
    return end == word.size() ? std::optional<double>(value) : std::nullopt;
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

/// Whether a line names columns, as "h1,h2": words that do not begin as numbers do, and are none ("nan").
bool isHeadingLine(std::string const& line) {
  std::vector<std::string> const words = wordsIn(line);
  return !words.empty() && std::all_of(words.begin(), words.end(), [](std::string const& word) {
    return std::string("0123456789+-.").find(word[0]) == std::string::npos && !numberOf(word);
  });
}

/// The numbers of a text with commas, semicolons or blanks between them.
/// @throws Exception for anything else, naming `what`
std::vector<double> numbersIn(std::string const& text, std::string const& what) {
  std::vector<double> numbers;
  for (std::string const& word : wordsIn(text)) {
    std::optional<double> const value = numberOf(word);
    if (!value || !std::isfinite(*value)) {
      throw failure(what + ": \"" + printable(word) + "\" is no number");
    }
    numbers.push_back(*value);
  }
  return numbers;
}

std::vector<double> numbersOf(nlohmann::json const& json, std::string const& what) {
  try {
    return json.get<std::vector<double>>();
  } catch (nlohmann::json::exception const&) {
    throw failure(what + " is no list of numbers");
  }
}

cv::Vec3d readStep(std::string const& folder, StageMotion const& motion) {
  std::vector<double> step;
  std::string const path = stagePath(folder);
  if (!motion.step.empty()) {
    step = numbersIn(motion.step, "--step " + motion.step);
  } else if (std::filesystem::exists(path)) {
    nlohmann::json const json = readJsonFile(path);
    step = numbersOf(json.is_object() ? json.value("step", nlohmann::json()) : nlohmann::json(),
                     "\"step\" in " + path);
  } else {
    throw failure("There is no " + path + ": give the stage's motion by --step X,Y,Z");
  }
  if (step.size() != 3 || cv::norm(step) == 0) {
    throw failure("The stage's step is not three numbers that differ from 0,0,0");
  }
  return {step[0], step[1], step[2]};
}

std::vector<double> readEncoder(std::string const& path) {
  if (lowerCaseEnding(path) == ".json") {
    return numbersOf(readJsonFile(path), path);
  }
  std::vector<unsigned char> const bytes = readInputFile(path);
  std::istringstream file(std::string(bytes.begin(), bytes.end()));
  std::vector<double> places;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    bool const isHeading = number == 1 && isHeadingLine(line);
    std::vector<double> const inLine =
        isHeading ? std::vector<double>() : numbersIn(line, path + ", line " + std::to_string(number));
    places.insert(places.end(), inLine.begin(), inLine.end());
  }
  return places;
}

/// @param positions of the stage; a single one without an encoder needs no motion
mv::Stage readStage(std::string const& folder, StageMotion const& motion, std::size_t positions) {
  mv::Stage stage;
  if (positions > 1 || !motion.encoder.empty()) {
    stage.step = readStep(folder, motion);
  }
  if (!motion.encoder.empty()) {
    stage.places = readEncoder(motion.encoder);
    if (stage.places.empty()) {
      throw failure(motion.encoder + " has no places");
    }
  }
  return stage;
}

} // namespace

std::string stagePath(std::string const& folder) {
  return (std::filesystem::path(folder) / "stage.json").string();
}

std::vector<std::string> laserFiles(std::string const& folder, std::vector<std::string> const& names) {
  if (!names.empty()) {
    return namedFiles(folder, names);
  }
  std::vector<std::string> files;
  for (NumberedFile const& file : findSequence(folder, "line")) {
    files.push_back(file.path);
  }
  return files;
}

mv::LaserScanResult scanLaser(std::string const& folder, mv::LineScanner const& scanner,
                              StageMotion const& motion, mv::LaserScanSettings const& settings,
                              Observer* observer, std::vector<std::string> const& names) {
  std::vector<std::string> const files = laserFiles(folder, names);
  std::vector<cv::Mat> const pages = // of one file for all
      files.size() == 1 && isTiff(files[0]) ? readNamedImages(files) : std::vector<cv::Mat>();
  std::size_t const count = pages.empty() ? files.size() : pages.size();
  std::size_t const planes = std::max<std::size_t>(1, scanner.getPlanes().size());
  if (count == 0 || count % planes != 0) {
    throw failure(folder + " has " + std::to_string(count) + " images " +
                  (names.empty() ? "line_00 ..." : "of these names") + ", no multiple of " +
                  std::to_string(planes) + " laser lines");
  }
  mv::Stage const stage = readStage(folder, motion, count / planes);
  mv::LaserScanResult scan = mv::scanLaser(
      scanner, count, [&](std::size_t i) { return pages.empty() ? readImage(files[i]) : pages[i]; }, stage,
      settings, observer);
  if (scan.points == 0) {
    throw failure("None of the " + std::to_string(count) + " images in " + folder + " shows a laser line" +
                  (scan.ambiguousImages > 0
                       ? "; two stripes side by side are in " + std::to_string(scan.ambiguousImages)
                       : std::string()));
  }
  return scan;
}

nlohmann::json scanReport(mv::LaserScanResult const& scan) {
  return {{"images", scan.images},
          {"imagesWithoutLine", scan.emptyImages},
          {"imagesAmbiguous", scan.ambiguousImages},
          {"color", scan.color.weights},
          {"whiteLevel", scan.whiteLevel},
          {"overexposed", scan.overexposed},
          {"points", scan.points},
          {"times",
           {{"read", scan.readTime}, {"extract", scan.extractTime}, {"triangulate", scan.triangulateTime}}},
          {"box", boxReport(scan.cloud)}};
}

} // namespace vorn::tools
