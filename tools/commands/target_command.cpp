// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "tools/calibration/target_drawing.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct TargetOptions {
  std::string output;
  std::string page;
  TargetDrawing target;
};

/// "A4" to "A0" in landscape, or WIDTHxHEIGHT in millimetres.
cv::Size2d pageOf(std::string const& text) {
  static std::map<std::string, cv::Size2d> const papers = {
      {"A4", {297, 210}}, {"A3", {420, 297}}, {"A2", {594, 420}}, {"A1", {841, 594}}, {"A0", {1189, 841}}};
  auto const paper = papers.find(text);
  return paper != papers.end() ? paper->second : parseSize(text, "--page");
}

void run(TargetOptions const& options, Report& report) {
  TargetDrawing target = options.target;
  if (!options.page.empty()) {
    target.page = pageOf(options.page);
  }
  report.declare({}, targetFiles(options.output));
  writeTarget(options.output, target);
  cv::Size2d const page = pageSize(target);
  cv::Point const dots = target.maxIndex - target.minIndex + cv::Point(1, 1);
  report.add({{"dots", {dots.x, dots.y}}, {"pitch", target.pitch}, {"page", {page.width, page.height}}});
  std::cout << dots.x << " x " << dots.y << " dots, pitch " << target.pitch << " mm, on " << page.width
            << " x " << page.height << " mm: " << options.output
            << "\nIts description for --target stands beside it as .json."
            << "\nPrint it at 100 %, then measure the pitch over many dots.\n";
}

} // namespace

void addTargetCommand(CLI::App& app) {
  auto options = std::make_shared<TargetOptions>();
  TargetDrawing& target = options->target;
  CLI::App* command = app.add_subcommand("target", "Write the calibration target to scale, to print");
  command->add_option("output", options->output, "Where to write: .svg, .png, or without ending for both")
      ->required();
  command->add_option("--pitch", target.pitch, "From one dot to the next, mm")
      ->check(CLI::Range(0.1, 1000.0))
      ->capture_default_str();
  constexpr int farthest = 30;
  command->add_option("--x-min", target.minIndex.x, "First column")
      ->check(CLI::Range(-farthest, -1))
      ->capture_default_str();
  command->add_option("--x-max", target.maxIndex.x, "Last column")
      ->check(CLI::Range(1, farthest))
      ->capture_default_str();
  command->add_option("--y-min", target.minIndex.y, "First row")
      ->check(CLI::Range(-farthest, -1))
      ->capture_default_str();
  command->add_option("--y-max", target.maxIndex.y, "Last row")
      ->check(CLI::Range(1, farthest))
      ->capture_default_str();
  command
      ->add_option("--page", options->page,
                   "A4 to A0, landscape, or WIDTHxHEIGHT in mm; default: as large as needed")
      ->type_name("SIZE");
  command->add_option("--dpi", target.resolution, "Pixels per inch of the PNG")
      ->check(CLI::Range(10.0, 4800.0))
      ->capture_default_str();
  command->add_flag("--dark-dots", target.hasDarkDots, "Dark dots on white instead of white dots on grey");
  command->add_flag("!--no-markers", target.hasMarkers, "Leave out the three marker dots");
  setWork(*command, [options](Report& report) { run(*options, report); });
}

} // namespace vorn::tools
