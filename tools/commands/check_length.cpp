// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/check_length.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/detect_target.hpp>

#include "tools/calibration/folder_calibration.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/target_file.hpp"
#include "tools/progress.hpp"
#include "tools/report/page.hpp"
#include "tools/report/printed.hpp"
#include "tools/scan/ball_length.hpp"
#include "tools/scan/dot_length.hpp"

namespace vorn::tools {

namespace {

cv::Point parsePixel(std::string const& text) {
  std::istringstream in(text);
  cv::Point pixel;
  char comma = 0;
  if (!(in >> pixel.x >> comma >> pixel.y) || comma != ',' ||
      in.peek() != std::istringstream::traits_type::eof()) {
    throw Exception("--ball and --dot take a pixel as X,Y, not " + text, nullptr, 0, "check");
  }
  return pixel;
}

/// A distance of two things in the scan.
struct FoundLength {
  std::string things; ///< what they are, as "balls"
  double length = 0;
  double sigma = 0;
  nlohmann::json asJson;
};

FoundLength ballLength(LengthOptions const& options, cv::Mat_<cv::Vec3f> const& xyz) {
  BallLength const found = measureBalls(xyz, parsePixel(options.balls[0]), parsePixel(options.balls[1]));
  nlohmann::json balls = nlohmann::json::array();
  for (ScannedBall const& ball : found.balls) {
    cv::Point3f const& centre = ball.sphere.centre();
    balls.push_back({{"centre", {centre.x, centre.y, centre.z}},
                     {"radius", ball.sphere.radius()},
                     {"form", ball.form},
                     {"points", ball.points}});
  }
  return {"balls", found.length, found.sigma, balls};
}

FoundLength dotLength(LengthOptions const& options, std::string const& folder, cv::Mat_<cv::Vec3f> const& xyz,
                      cv::Mat_<float> const& modulation, mv::Sl3dScanner const& scanner) {
  std::string const file = options.targetFile(folder);
  mv::TargetDescription const target =
      !options.target.isGiven() && !file.empty() ? readTarget(file) : options.target.description(0);
  mv::Detection const detection =
      watched([&](Observer* bar) { return mv::detectTarget(modulation, target, mv::DetectSettings(), bar); });
  if (detection.isEmpty()) {
    throw Exception("The scan shows no target: " + detection.reason, nullptr, 0, "check");
  }
  DotLength const length =
      measureDots(detection, xyz, scanner, parsePixel(options.dots[0]), parsePixel(options.dots[1]));
  nlohmann::json dots = nlohmann::json::array();
  for (ScannedDot const& dot : length.dots) {
    dots.push_back({{"pixel", {dot.pixel.x, dot.pixel.y}},
                    {"index", {dot.index.x, dot.index.y}},
                    {"place", {dot.place.x, dot.place.y, dot.place.z}}});
  }
  return {"dots", length.length, length.sigma, dots};
}

/// Compares a distance with what it is; returns what is wrong, or nothing.
std::string checkLength(LengthOptions const& options, FoundLength const& found, Report& report) {
  double const error = found.length - options.length;
  constexpr double significance = 3;
  double const limit = std::max(0.01 * options.tolerance * options.length, significance * found.sigma);
  bool const isGood = std::abs(error) <= limit;
  report["length"] = {{"nominal", options.length},
                      {"measured", found.length},
                      {"sigma", found.sigma},
                      {"limit", limit},
                      {"good", isGood},
                      {found.things, found.asJson}};
  std::string const text =
      printed("The %s are %.4f mm apart (sigma %.4f), %+.4f mm (%+.0f ppm) of %g", found.things.c_str(),
              found.length, found.sigma, error, 1e6 * error / options.length, options.length);
  std::cout << text << '\n';
  if (report.isPageWanted()) {
    report.page().findings.push_back({isGood ? PageFinding::Weight::Good : PageFinding::Weight::Failure,
                                      text + ".", isGood ? "" : "The scale has changed: calibrate anew."});
  }
  return isGood ? "" : printed("a length of %g mm is measured as %.4f mm", options.length, found.length);
}

} // namespace

void LengthOptions::addTo(CLI::App& command) {
  CLI::Option* known =
      command
          .add_option("--length", length,
                      "The true distance of two balls, or of two dots of a target, in the scan, mm")
          ->check(aboveZero());
  CLI::Option* ball =
      command.add_option("--ball", balls, "A pixel on one of the two balls, X,Y; to be given twice")
          ->needs(known);
  CLI::Option* dot = command
                         .add_option("--dot", dots,
                                     "A pixel on one of two dots of a target, X,Y; to be given twice. What "
                                     "the target is says target.json beside the scan; else it has the three "
                                     "marks")
                         ->needs(known)
                         ->excludes(ball);
  target.addTo(command);
  for (char const* name : {"--target", "--size", "--kind"}) {
    command.get_option(name)->needs(dot);
  }
  command
      .add_option("--tolerance", tolerance,
                  "How far that distance may be off, in percent, unless its own sigma is larger")
      ->capture_default_str()
      ->check(aboveZero())
      ->needs(known);
}

void LengthOptions::check() const {
  bool const areTwo = balls.size() + dots.size() == 2 && balls.size() != 1;
  if ((length > 0.0) != areTwo) {
    throw Exception("--length takes two balls or two dots of a target: --ball X,Y --ball X,Y or --dot X,Y "
                    "--dot X,Y, a pixel on each",
                    nullptr, 0, "check");
  }
}

std::string LengthOptions::targetFile(std::string const& folder) const {
  if (dots.empty() || target.isGiven()) {
    return target.file();
  }
  return targetFileOf(folder);
}

std::string measureLength(LengthOptions const& options, std::string const& folder,
                          cv::Mat_<cv::Vec3f> const& xyz, cv::Mat_<float> const& modulation,
                          mv::Sl3dScanner const& scanner, Report& report) {
  if (options.length == 0.0) {
    return "";
  }
  FoundLength const found =
      options.dots.empty() ? ballLength(options, xyz) : dotLength(options, folder, xyz, modulation, scanner);
  return checkLength(options, found, report);
}

} // namespace vorn::tools
