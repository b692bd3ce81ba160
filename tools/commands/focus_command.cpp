// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/measure/focus.hpp>

#include "tools/commands/commands.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct FocusOptions {
  std::vector<std::string> images;
  std::string map;
};

struct ImageFocus {
  std::string file;
  mv::Focus laplacian;
  mv::Focus tenengrad;
  mv::Focus edgeWidth;
};

ImageFocus focusOf(std::string const& path) {
  cv::Mat const image = readImage(path);
  auto const by = [&](mv::FocusMeasure measure) {
    mv::FocusSettings settings;
    settings.measure = measure;
    return mv::calcFocus(image, settings);
  };
  return {path, by(mv::FocusMeasure::LaplacianVariance), by(mv::FocusMeasure::Tenengrad),
          by(mv::FocusMeasure::EdgeWidth)};
}

/// The image with the width of its edges, cell by cell.
mv::AMat mapOf(ImageFocus const& focus) {
  mv::AMat map(readImage(focus.file));
  cv::Mat_<float> const widths = focus.edgeWidth.map;
  constexpr double cell = 64.0; // as the settings have it
  constexpr double widest = 3.0;
  for (int y = 0; y < widths.rows; ++y) {
    for (int x = 0; x < widths.cols; ++x) {
      auto const width = static_cast<double>(widths(y, x));
      if (std::isfinite(width)) {
        mv::MarkStyle style;
        style.color = mv::colorOf(mv::ColorMap::Turbo, width / widest);
        style.isFilled = true;
        style.hasHalo = false;
        style.width = 1.0;
        cv::Point2d const a(x * cell - 0.5, y * cell - 0.5);
        map.addPolygon({a, a + cv::Point2d(cell, 0), a + cv::Point2d(cell, cell), a + cv::Point2d(0, cell)},
                       style);
      }
    }
  }
  map.setTitle("Blur of edges, standard deviation; cells without a colour have none");
  map.addLegend(mv::ColorMap::Turbo, 0.0, widest, "px", "blur");
  return map;
}

void print(std::vector<ImageFocus> const& all, std::size_t sharpest) {
  std::cout << printed("%-32s %14s %14s %12s %8s\n", "image", "Laplacian", "Tenengrad", "blur px", "edges");
  for (std::size_t i = 0; i < all.size(); ++i) {
    ImageFocus const& one = all[i];
    std::cout << printed("%-32s %14.6g %14.6g %12.3f %8zu%s\n", one.file.c_str(), one.laplacian.value,
                         one.tenengrad.value, one.edgeWidth.value, one.edgeWidth.edges,
                         all.size() > 1 && i == sharpest ? "  sharpest" : "");
  }
}

void run(FocusOptions const& options, Report& report) {
  checkFigurePath(options.map);
  report.declare(options.images, {options.map});
  std::vector<ImageFocus> all;
  std::size_t sharpest = 0;
  for (std::string const& path : options.images) {
    all.push_back(focusOf(path));
    if (all.back().tenengrad.value > all[sharpest].tenengrad.value) {
      sharpest = all.size() - 1;
    }
  }
  if (!options.map.empty()) {
    writeFigure(options.map, mapOf(all[sharpest]));
  }
  print(all, sharpest);
  report["sharpest"] = all[sharpest].file;
  report["images"] = nlohmann::json::array();
  for (ImageFocus const& one : all) {
    report["images"].push_back({{"file", one.file},
                                {"laplacianVariance", finiteOrNull(one.laplacian.value)},
                                {"tenengrad", finiteOrNull(one.tenengrad.value)},
                                {"edgeWidth", finiteOrNull(one.edgeWidth.value)},
                                {"edges", one.edgeWidth.edges}});
  }
}

} // namespace

void addFocusCommand(CLI::App& app) {
  auto options = std::make_shared<FocusOptions>();
  CLI::App* command = app.add_subcommand("focus", "Measure how sharp images are, and where");
  command->add_option("images", options->images, "Images; of a focus series the sharpest is named")
      ->required();
  command->add_option("--map", options->map,
                      "Picture (or .svg) of the sharpest image with the blur of its edges");
  setWork(
      *command, [=](Report& report) { run(*options, report); }, "--report", "how sharp each image is");
}

} // namespace vorn::tools
