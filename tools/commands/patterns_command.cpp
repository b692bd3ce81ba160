// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/json_file.hpp>
#include <vorn/mv/sl/pattern_set.hpp>
#include <vorn/mv/sl/patterns.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/pattern_plan.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/pattern_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct PatternsOptions {
  std::string folder;
  int width = 0;
  int height = 0;
  bool white = false;
  std::string set; ///< empty: the sequences of the scanner
  std::string axes = "both";
  mv::PatternSetOptions options;
  bool isWithoutInverses = false;
  double gamma = 1.0;
  PlanOptions plan;

  mv::PatternAxes codedAxes() const {
    return axes == "columns" ? mv::PatternAxes::Columns
           : axes == "rows"  ? mv::PatternAxes::Rows
                             : mv::PatternAxes::Both;
  }
  /// As many pixels as any set codes.
  bool takesAnySize() const { return !set.empty() || plan.isWanted; }
};

constexpr int largestSet = 32767; ///< pixels each way that pattern sets code

void writeSequence(PatternsOptions const& options, std::string const& prefix,
                   std::vector<cv::Mat> const& images) {
  ProgressBar bar;
  for (std::size_t i = 0; i < images.size(); ++i) {
    tell(&bar, "writing " + prefix, i, images.size());
    writeImage(sequencePath(options.folder, prefix, static_cast<int>(i)), images[i]);
  }
}

/// What a projector that shows light = value^gamma must be given to show what is meant.
std::vector<std::uint8_t> gammaTable(double gamma) {
  std::vector<std::uint8_t> table;
  constexpr int levels = 256;
  for (int v = 0; gamma != 1.0 && v < levels; ++v) {
    table.push_back(cv::saturate_cast<std::uint8_t>(255.0 * std::pow(v / 255.0, 1.0 / gamma)));
  }
  return table;
}

/// A scan of more than the scanner's sequences code is refused; other sets have their own bounds.
void checkSize(PatternsOptions const& options) {
  if (options.axes != "both" && !options.takesAnySize()) {
    throw CLI::RequiresError("--axes", "--set or --plan");
  }
  using mv::sl::StripeCode;
  auto const require = [&](char const* option, int value, mv::sl::StripeCode const& code) {
    int const most = options.takesAnySize() ? largestSet : code.capacity(StripeCode::maxGeneratedPlanes);
    if (value < 1 || value > most) {
      throw CLI::ValidationError(option, "Value " + std::to_string(value) + " not in range [1 - " +
                                             std::to_string(most) + "]");
    }
  };
  require("--width", options.width, mv::sl::columnCode);
  require("--height", options.height, mv::sl::rowCode);
}

/// A projector that shows all files of the folder would show those of an earlier, longer sequence, too.
void warnOfOlder(PatternsOptions const& options, std::string const& prefix, std::size_t count,
                 Report& report) {
  auto last = static_cast<int>(count);
  while (std::filesystem::exists(sequencePath(options.folder, prefix, last))) {
    ++last;
  }
  if (last > static_cast<int>(count)) {
    report.warn(sequencePath(options.folder, prefix, static_cast<int>(count)) + " to " +
                sequencePath("", prefix, last - 1) +
                " are there from a longer sequence and are no part of this one: delete them");
  }
}

void writeWhite(PatternsOptions const& options) {
  if (options.white) {
    writeImage((std::filesystem::path(options.folder) / "white.png").string(),
               cv::Mat(options.height, options.width, CV_8UC1, cv::Scalar(255)));
  }
}

void writeSet(PatternsOptions const& options, Report& report) {
  mv::PatternSetOptions wanted = options.options;
  wanted.hasInverses = !options.isWithoutInverses;
  wanted.axes = options.codedAxes();
  cv::Size const size(options.width, options.height);
  mv::PatternSet set = mv::PatternSet::builtIn(options.set, size, wanted);
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    set.images[i].file = sequencePath("", "pattern", static_cast<int>(i));
  }
  std::vector<cv::Mat> const images = set.generate(gammaTable(options.gamma));
  makeFolder(options.folder);
  report.declare({}, {});
  writeSequence(options, "pattern", images);
  warnOfOlder(options, "pattern", images.size(), report);
  save(patternSetPath(options.folder), set);
  writeWhite(options);
  report.add({{"set", set.name}, {"images", images.size()}, {"size", {size.width, size.height}}});
  std::cout << images.size() << " patterns of the set " << set.name << " of " << options.width << " x "
            << options.height << " pixels in " << options.folder << "\n"
            << "Capture one image for each, under the same names, and put pattern_set.json beside them.\n";
}

/// Tells of the sets that serve, and writes the best one where a folder is given.
void plan(PatternsOptions const& options, Report& report) {
  report.declare({options.plan.light}, {});
  cv::Size const size(options.width, options.height);
  mv::PatternPlan const best = showPlans(options.plan, size, options.codedAxes(), report).front();
  report["size"] = {size.width, size.height};
  if (!options.folder.empty()) {
    PatternsOptions chosen = options;
    chosen.set = best.set.name;
    chosen.options = best.options;
    chosen.isWithoutInverses = !best.options.hasInverses;
    writeSet(chosen, report);
  }
}

void run(PatternsOptions const& options, Report& report) {
  if (options.plan.isWanted) {
    plan(options, report);
    return;
  }
  if (options.folder.empty()) {
    throw CLI::RequiredError("folder");
  }
  if (!options.set.empty()) {
    writeSet(options, report);
    return;
  }
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  cv::Size const size(options.width, options.height);
  mv::generate_ps4_patterns(columns, rows, size);
  makeFolder(options.folder);
  report.declare({}, {});
  writeSequence(options, "columns", columns);
  writeSequence(options, "rows", rows);
  warnOfOlder(options, "columns", columns.size(), report);
  warnOfOlder(options, "rows", rows.size(), report);
  writeWhite(options);
  report.add({{"columns", columns.size()}, {"rows", rows.size()}, {"size", {size.width, size.height}}});
  std::cout << columns.size() << " column and " << rows.size() << " row patterns of " << options.width
            << " x " << options.height << " pixels in " << options.folder << "\n"
            << "Capture one image for each, in this order, under the same names.\n";
}

} // namespace

void addPatternsCommand(CLI::App& app) {
  auto options = std::make_shared<PatternsOptions>();
  CLI::App* command = app.add_subcommand("patterns", "Write the images that a projector shows during a scan");
  command->add_option("folder", options->folder, "Folder to write them to; made if need be");
  using mv::sl::StripeCode;
  auto const range = [](char const* what, StripeCode const& code) {
    return std::string("Projector ") + what + ", 1 to " +
           std::to_string(code.capacity(StripeCode::maxGeneratedPlanes)) + ", with --set or --plan to " +
           std::to_string(largestSet);
  };
  command->add_option("--width", options->width, range("columns", mv::sl::columnCode))
      ->required()
      ->transform(wholeNumber<int>());
  command->add_option("--height", options->height, range("rows", mv::sl::rowCode))
      ->required()
      ->transform(wholeNumber<int>());
  command->add_flag("--white", options->white, "Also write a white image, for the target's view");
  std::string names;
  for (std::string const& name : mv::PatternSet::builtInNames()) {
    names += (names.empty() ? "" : ", ") + name;
  }
  CLI::Option* set = command->add_option(
      "--set", options->set, "Another set, as one sequence, and its description pattern_set.json: " + names);
  command->add_option("--axes", options->axes, "What a set codes: both, columns or rows")
      ->check(CLI::IsMember({"both", "columns", "rows"}));
  command->add_option("--steps", options->options.steps, "Steps of every phase shift; 0: as the set has them")
      ->transform(wholeNumber<int>())
      ->needs(set);
  command
      ->add_option("--period", options->options.period,
                   "Period of the finest fringes, projector pixels; 0: as the set has it")
      ->check(anyNumber())
      ->needs(set);
  command
      ->add_flag("--no-inverses", options->isWithoutInverses,
                 "White and black in place of the inverses of bits")
      ->needs(set);
  command->add_option("--gamma", options->gamma, "Gamma of the projector, which the images are made up for")
      ->check(between(0.1, 10.0))
      ->needs(set);
  options->plan.addTo(*command);
  set->excludes("--plan");
  setWork(*command, [options](Report& report) {
    checkSize(*options);
    run(*options, report);
  });
}

} // namespace vorn::tools
