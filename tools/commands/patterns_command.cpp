// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iostream>
#include <memory>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/sl/patterns.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/commands.hpp"
#include "tools/files/image_files.hpp"
#include "tools/progress.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct PatternsOptions {
  std::string folder;
  int width = 0;
  int height = 0;
  bool white = false;
};

void writeSequence(PatternsOptions const& options, std::string const& prefix,
                   std::vector<cv::Mat> const& images) {
  ProgressBar bar;
  for (std::size_t i = 0; i < images.size(); ++i) {
    tell(&bar, "writing " + prefix, i, images.size());
    writeImage(sequencePath(options.folder, prefix, static_cast<int>(i)), images[i]);
  }
}

void run(PatternsOptions const& options, Report& report) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  cv::Size const size(options.width, options.height);
  mv::generate_ps4_patterns(columns, rows, size);
  makeFolder(options.folder);
  report.declare({}, {});
  writeSequence(options, "columns", columns);
  writeSequence(options, "rows", rows);
  if (options.white) {
    writeImage((std::filesystem::path(options.folder) / "white.png").string(),
               cv::Mat(size, CV_8UC1, cv::Scalar(255)));
  }
  report.add({{"columns", columns.size()}, {"rows", rows.size()}, {"size", {size.width, size.height}}});
  std::cout << columns.size() << " column and " << rows.size() << " row patterns of " << options.width
            << " x " << options.height << " pixels in " << options.folder << "\n"
            << "Capture one image for each, in this order, under the same names.\n";
}

} // namespace

void addPatternsCommand(CLI::App& app) {
  auto options = std::make_shared<PatternsOptions>();
  CLI::App* command = app.add_subcommand("patterns", "Write the images that a projector shows during a scan");
  command->add_option("folder", options->folder, "Folder to write them to; made if need be")->required();
  // A scan of more is refused.
  using mv::sl::StripeCode;
  constexpr int mostColumns = mv::sl::columnCode.capacity(StripeCode::maxGeneratedPlanes);
  constexpr int mostRows = mv::sl::rowCode.capacity(StripeCode::maxGeneratedPlanes);
  command->add_option("--width", options->width, "Projector columns, as many as the patterns can code")
      ->required()
      ->check(CLI::Range(1, mostColumns));
  command->add_option("--height", options->height, "Projector rows, likewise")
      ->required()
      ->check(CLI::Range(1, mostRows));
  command->add_flag("--white", options->white, "Also write a white image, for the target's view");
  setWork(*command, [options](Report& report) { run(*options, report); });
}

} // namespace vorn::tools
