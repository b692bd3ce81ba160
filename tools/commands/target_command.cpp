// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "tools/calibration/target_drawing.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/target_file.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct DrawingOptions {
  std::string output;
  std::string page;
  std::string squares; ///< of a ChArUco board; empty for dots
  double markerSize = 0;
  std::string dictionary = "DICT_5X5_100";
  TargetDrawing target;
};

/// "A4" to "A0" in landscape, or WIDTHxHEIGHT in millimetres.
cv::Size2d pageOf(std::string const& text) {
  static std::map<std::string, cv::Size2d> const papers = {
      {"A4", {297, 210}}, {"A3", {420, 297}}, {"A2", {594, 420}}, {"A1", {841, 594}}, {"A0", {1189, 841}}};
  auto const paper = papers.find(text);
  return paper != papers.end() ? paper->second : parseSize(text, "--page");
}

/// The board as a file would describe it, so that both are held to the same bounds.
mv::TargetDescription boardOf(DrawingOptions const& options) {
  constexpr double usualShare = 0.75; // of a square: its corners keep room, and cells are not too small
  double const pitch = options.target.pitch;
  cv::Size const squares = parsePixels(options.squares, "--charuco");
  mv::TargetDescription board;
  board.read({{"kind", "charuco"},
              {"pitch", pitch},
              {"squares", {squares.width, squares.height}},
              {"markerSize", options.markerSize > 0 ? options.markerSize : usualShare * pitch},
              {"dictionary", options.dictionary}});
  prepareFor(board);
  return board;
}

/// What was drawn, for the report and in words.
std::string describeDrawn(TargetDrawing const& target, Report& report) {
  std::ostringstream text;
  if (target.board) {
    cv::Size const corners = target.board->size;
    report.add({{"squares", {corners.width + 1, corners.height + 1}},
                {"markerSize", target.board->markerSize},
                {"dictionary", target.board->dictionary}});
    text << corners.width + 1 << " x " << corners.height + 1 << " squares of " << target.pitch
         << " mm with markers of " << target.board->markerSize << " mm, " << target.board->dictionary;
  } else {
    cv::Point const dots = target.maxIndex - target.minIndex + cv::Point(1, 1);
    report.add({{"dots", {dots.x, dots.y}}});
    text << dots.x << " x " << dots.y << " dots, pitch " << target.pitch << " mm";
  }
  return text.str();
}

void run(DrawingOptions const& options, Report& report) {
  TargetDrawing target = options.target;
  if (!options.squares.empty()) {
    target.board = boardOf(options);
  }
  if (!options.page.empty()) {
    target.page = pageOf(options.page);
  }
  report.declare({}, targetFiles(options.output));
  writeTarget(options.output, target);
  cv::Size2d const page = pageSize(target);
  report.add({{"pitch", target.pitch}, {"page", {page.width, page.height}}});
  std::cout << describeDrawn(target, report) << ", on " << page.width << " x " << page.height
            << " mm: " << options.output << "\nIts description for --target stands beside it as .json."
            << "\nPrint it at 100 %, then measure the pitch over many " << (target.board ? "squares" : "dots")
            << ".\n";
}

} // namespace

void addTargetCommand(CLI::App& app) {
  auto options = std::make_shared<DrawingOptions>();
  TargetDrawing& target = options->target;
  CLI::App* command = app.add_subcommand("target", "Write the calibration target to scale, to print");
  command->add_option("output", options->output, "Where to write: .svg, .png, or without ending for both")
      ->required();
  command->add_option("--pitch", target.pitch, "From one dot to the next, or the side of a square, mm")
      ->check(between(0.1, 1000.0))
      ->capture_default_str();
  CLI::Option* board =
      command
          ->add_option("--charuco", options->squares,
                       "A ChArUco board of so many columns and rows of squares, as 10x7, in place of dots")
          ->type_name("CxR");
  command
      ->add_option(
          "--marker-size", options->markerSize,
          "Side of a board's markers with their dark border, mm; default: three quarters of a square")
      ->type_name("MM")
      ->check(aboveZero())
      ->needs(board);
  command
      ->add_option("--dictionary", options->dictionary, "Dictionary of a board's markers, by OpenCV's name")
      ->type_name("NAME")
      ->needs(board)
      ->capture_default_str();
  constexpr int farthest = 30;
  command->add_option("--x-min", target.minIndex.x, "First column")
      ->excludes(board)
      ->transform(between(-farthest, -1))
      ->capture_default_str();
  command->add_option("--x-max", target.maxIndex.x, "Last column")
      ->excludes(board)
      ->transform(between(1, farthest))
      ->capture_default_str();
  command->add_option("--y-min", target.minIndex.y, "First row")
      ->excludes(board)
      ->transform(between(-farthest, -1))
      ->capture_default_str();
  command->add_option("--y-max", target.maxIndex.y, "Last row")
      ->excludes(board)
      ->transform(between(1, farthest))
      ->capture_default_str();
  command
      ->add_option("--page", options->page,
                   "A4 to A0, landscape, or WIDTHxHEIGHT in mm; default: as large as needed")
      ->type_name("SIZE");
  command->add_option("--dpi", target.resolution, "Pixels per inch of the PNG")
      ->check(between(10.0, 4800.0))
      ->capture_default_str();
  command->add_flag("--dark-dots", target.hasDarkDots, "Dark dots on white instead of white dots on grey")
      ->excludes(board);
  command->add_flag("!--no-markers", target.hasMarkers, "Leave out the three marker dots")->excludes(board);
  setWork(*command, [options](Report& report) { run(*options, report); });
}

} // namespace vorn::tools
