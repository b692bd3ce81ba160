// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/laser_scan.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/geometry/plane3f.hpp>

#include "tools/commands/size_option.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/progress.hpp"

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

/// The numbers of a text with commas, semicolons or blanks between them.
/// @throws Exception for anything else, naming `what`
std::vector<double> numbersIn(std::string text, std::string const& what) {
  for (char& c : text) {
    c = c == ',' || c == ';' ? ' ' : c;
  }
  std::istringstream in(text);
  std::vector<double> numbers;
  for (std::string word; in >> word;) {
    std::size_t end = 0;
    double value = 0;
    try {
      value = std::stod(word, &end);
    } catch (std::exception const&) {
      end = 0;
    }
    if (end != word.size() || !std::isfinite(value)) {
      throw failure(what + ": \"" + printable(word) + "\" is no number");
    }
    numbers.push_back(value);
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
  std::string const path = (std::filesystem::path(folder) / "stage.json").string();
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
  std::ifstream file(path);
  if (!file) {
    throw failure("Cannot read " + path);
  }
  std::vector<double> places;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    bool const isHeading = number == 1 && line.find_first_of("0123456789") == std::string::npos;
    std::vector<double> const inLine =
        isHeading ? std::vector<double>() : numbersIn(line, path + ", line " + std::to_string(number));
    places.insert(places.end(), inLine.begin(), inLine.end());
  }
  return places;
}

/// How far the scene has moved since the first image, image by image.
std::vector<cv::Vec3d> motions(std::string const& folder, StageMotion const& motion, std::size_t images,
                               std::size_t planes) {
  std::size_t const positions = images / planes;
  std::vector<cv::Vec3d> result(images);
  if (positions == 1 && motion.encoder.empty()) {
    return result;
  }
  cv::Vec3d const step = readStep(folder, motion);
  if (motion.encoder.empty()) {
    for (std::size_t i = 0; i < images; ++i) {
      std::size_t const position = i / planes;
      result[i] = static_cast<double>(position) * step;
    }
    return result;
  }
  std::vector<double> const places = readEncoder(motion.encoder);
  if (places.size() != positions && places.size() != images) {
    throw failure(motion.encoder + " has " + std::to_string(places.size()) + " places, but there are " +
                  std::to_string(positions) + " positions of the stage");
  }
  std::size_t const imagesPerPlace = images / places.size();
  for (std::size_t i = 0; i < images; ++i) {
    result[i] = (places[i / imagesPerPlace] - places[0]) * cv::normalize(step);
  }
  return result;
}

/// The line of a plane runs across the image when the plane's normal points down it.
mv::LaserLineOptions::Direction directionOf(mv::Plane3f const& plane) {
  cv::Vec3f const& n = plane.normal();
  return std::abs(n[1]) > std::abs(n[0]) ? mv::LaserLineOptions::Direction::PerColumn
                                         : mv::LaserLineOptions::Direction::PerRow;
}

cv::Mat readLineImage(std::string const& path, cv::Size const& expected) {
  cv::Mat image = readLaserImage(path);
  if (image.size() != expected) {
    throw failure(path + " is " + sizeText(image.size()) + ", but the scanner's camera has " +
                  sizeText(expected));
  }
  return image;
}

} // namespace

LaserScan scanLaser(std::string const& folder, mv::LineScanner const& scanner, StageMotion const& motion,
                    mv::LaserLineOptions options) {
  if (!scanner.isCalibrated()) {
    throw failure("The line scanner is not calibrated: it has no camera with an error below half a pixel, "
                  "or no laser planes");
  }
  std::vector<NumberedFile> const files = findSequence(folder, "line");
  std::size_t const planes = scanner.getPlanes().size();
  if (files.empty() || files.size() % planes != 0) {
    throw failure(folder + " has " + std::to_string(files.size()) + " images line_00 ..., no multiple of " +
                  std::to_string(planes) + " laser lines");
  }
  std::vector<cv::Vec3d> const moved = motions(folder, motion, files.size(), planes);
  constexpr double farthest = 1e6; // mm, a kilometre
  if (std::any_of(moved.begin(), moved.end(),
                  [](cv::Vec3d const& m) { return !(cv::norm(m) <= farthest); })) {
    throw failure("The stage moves by more than a kilometre: its step or its places are not in mm");
  }

  LaserScan scan;
  scan.images = files.size();
  Progress progress("Scanning", static_cast<int>(files.size()));
  Timer timer;
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::size_t const plane = i % planes;
    timer.tic();
    cv::Mat const image = readLineImage(files[i].path, scanner.getCameraModel().getResolution());
    scan.readTime += timer.toc();

    timer.tic();
    options.direction = directionOf(scanner.getPlanes()[plane]);
    std::vector<cv::Point2f> const line = mv::extract_laser_line(image, options);
    scan.extractTime += timer.toc();
    scan.emptyImages += line.empty() ? 1 : 0;

    timer.tic();
    for (cv::Point3f const& p : scanner.triangulate(line, static_cast<int>(plane), {})) {
      if (std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) && p.z > 0) {
        scan.points.emplace_back(cv::Vec3d(p.x, p.y, p.z) - moved[i]);
      }
    }
    scan.triangulateTime += timer.toc();
    progress.step();
  }
  if (scan.points.empty()) {
    throw failure("None of the " + std::to_string(files.size()) + " images in " + folder +
                  " shows a laser line");
  }
  return scan;
}

nlohmann::json scanReport(LaserScan const& scan) {
  cv::Vec3f least = scan.points.front();
  cv::Vec3f most = least;
  for (cv::Vec3f const& p : scan.points) {
    for (int i = 0; i < 3; ++i) {
      least[i] = std::min(least[i], p[i]);
      most[i] = std::max(most[i], p[i]);
    }
  }
  cv::Vec3f const size = most - least;
  return {{"Images", scan.images},
          {"ImagesWithoutLine", scan.emptyImages},
          {"Points", scan.points.size()},
          {"Times",
           {{"Read", scan.readTime}, {"Extract", scan.extractTime}, {"Triangulate", scan.triangulateTime}}},
          {"Box", {{"Origin", {least[0], least[1], least[2]}}, {"Size", {size[0], size[1], size[2]}}}}};
}

} // namespace vorn::tools
