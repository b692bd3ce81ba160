// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>

#include "core/median.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/files/pattern_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/figure_options.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"
#include "tools/scan/pattern_doubts.hpp"
#include "tools/scan/preview.hpp"
#include "tools/scan/scan_report.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

struct DecodeOptions {
  std::string folder;
  std::string patterns;
  std::string out;
  std::string column;
  std::string row;
  FigureOptions look;
  mv::DecodeSettings settings;
  bool isAlone = false;
  bool isUncorrected = false;
};

/// One coded coordinate of a result.
struct Axis {
  char const* name;
  cv::Mat_<float> map;
  cv::Mat_<float> sigma;
  std::string path; ///< of its picture
};

std::vector<Axis> axesOf(mv::DecodedPatterns const& decoded, DecodeOptions const& options) {
  std::vector<Axis> axes{{"column", decoded.column, decoded.sigmaColumn, options.column},
                         {"row", decoded.row, decoded.sigmaRow, options.row}};
  axes.erase(std::remove_if(axes.begin(), axes.end(), [](Axis const& axis) { return axis.map.empty(); }),
             axes.end());
  return axes;
}

mv::ScanCounts countsOf(mv::DecodedPatterns const& decoded) {
  mv::ScanCounts counts;
  counts.pixels = decoded.mask.total();
  for (uchar const reason : decoded.mask) {
    ++counts.reasons[reason];
  }
  counts.decoded = counts.of(mv::PixelReason::Measured);
  return counts;
}

double medianOfFinite(cv::Mat_<float> const& map) {
  std::vector<float> values;
  std::copy_if(map.begin(), map.end(), std::back_inserter(values), [](float v) { return std::isfinite(v); });
  return static_cast<double>(medianAmong(values));
}

/// The finest period of an axis, which shows as bands; without fringes a few pixels.
float bandOf(mv::PatternSet const& set, std::string const& axis) {
  constexpr double ofBits = 32.0;
  double finest = 0.0;
  for (mv::PatternImage const& image : set.images) {
    bool const isOfAxis = (image.axis == mv::PatternAxis::Column) == (axis == "column");
    if (image.role == mv::PatternRole::Phase && isOfAxis && (finest == 0.0 || image.period < finest)) {
      finest = image.period;
    }
  }
  return static_cast<float>(finest > 0.0 ? finest : ofBits);
}

/// All that `--out` writes.
std::vector<std::string> filesInFolder(DecodeOptions const& options, mv::PatternSet const& set) {
  std::vector<std::string> paths;
  if (options.out.empty()) {
    return paths;
  }
  auto const add = [&](std::string const& name) { paths.push_back((fs::path(options.out) / name).string()); };
  for (auto const& [axis, name] :
       {std::pair(mv::PatternAxis::Column, "column"), std::pair(mv::PatternAxis::Row, "row")}) {
    if (set.codes(axis)) {
      add(name + std::string(".tiff"));
      add(std::string("sigma_") + name + ".tiff");
    }
  }
  add("modulation.tiff");
  add("mask.png");
  return paths;
}

void writeMaps(DecodeOptions const& options, PatternFolder const& folder, mv::DecodedPatterns const& decoded,
               std::vector<Axis> const& axes) {
  for (Axis const& axis : axes) {
    if (isTiff(axis.path)) {
      writeImage(axis.path, axis.map);
    } else if (!axis.path.empty()) {
      std::string const name = axis.name;
      writeFigure(
          axis.path,
          drawDecodedMap(axis.map, bandOf(folder.set, name), name, "decoded " + name + "s", options.look),
          options.look.drawSettings());
    }
  }
  if (options.out.empty()) {
    return;
  }
  auto const pathOf = [&](std::string const& name) { return (fs::path(options.out) / name).string(); };
  for (Axis const& axis : axes) {
    writeImage(pathOf(axis.name + std::string(".tiff")), axis.map);
    writeImage(pathOf(std::string("sigma_") + axis.name + ".tiff"), axis.sigma);
  }
  writeImage(pathOf("modulation.tiff"), decoded.modulation);
  writeImage(pathOf("mask.png"), decoded.mask);
}

nlohmann::json fringesReport(mv::DecodedPatterns const& decoded) {
  nlohmann::json list = nlohmann::json::array();
  for (mv::FringeFigures const& fringe : decoded.fringes) {
    list.push_back({{"axis", fringe.axis == mv::PatternAxis::Column ? "column" : "row"},
                    {"period", fringe.period},
                    {"images", fringe.images},
                    {"secondHarmonic", finiteOrNull(fringe.secondHarmonic)},
                    {"corrected", fringe.corrected},
                    {"misfit", finiteOrNull(fringe.misfit)}});
  }
  return list;
}

/// Images in another order, or of another set, decode to something where they happen to agree; what they
/// disagree about looks like noise.
void warnOfNoise(mv::DecodedPatterns const& decoded, Report& report) {
  cv::Mat_<float> ofDecoded = decoded.modulation.clone();
  ofDecoded.setTo(std::numeric_limits<float>::quiet_NaN(), decoded.mask != 0);
  double const amplitude = medianOfFinite(ofDecoded);
  constexpr double much = 0.15;
  if (decoded.noise > much * amplitude) {
    report.warn(
        printed("the images stray from what the set says by %.1f grey levels, with an amplitude of %.1f: "
                "unless the camera is that noisy, some are out of order, of another set, or the light "
                "changed",
                decoded.noise, amplitude));
  }
}

void run(DecodeOptions const& options, Report& report) {
  options.look.check();
  checkFigurePath(options.column);
  checkFigurePath(options.row);
  PatternFolder const folder = readPatternFolder(options.folder, options.patterns);
  std::vector<std::string> inputs{folder.description};
  inputs.insert(inputs.end(), folder.paths.begin(), folder.paths.end());
  if (!options.out.empty()) {
    makeFolder(options.out);
  }
  std::vector<std::string> outputs = filesInFolder(options, folder.set);
  outputs.insert(outputs.end(), {options.column, options.row});
  report.declare(inputs, outputs);
  Timer timer;
  std::vector<cv::Mat> const images = watched([&](Observer* bar) { return readPatternImages(folder, bar); });
  double const readTime = timer.toc();
  mv::DecodeSettings settings = options.settings;
  settings.usesNeighbours = !options.isAlone;
  settings.correctsHarmonics = !options.isUncorrected;
  settings.correctsStaircase = !options.isUncorrected;
  timer.tic();
  mv::DecodedPatterns const decoded =
      watched([&](Observer* bar) { return mv::decode_patterns(folder.set, images, settings, bar); });
  double const decodeTime = timer.toc();
  mv::ScanCounts const counts = countsOf(decoded);
  if (counts.decoded == 0) {
    throw Exception("None of the " + std::to_string(counts.pixels) + " pixels of " + options.folder +
                        " is decoded: " + reasonText(counts),
                    nullptr, 0, "decode");
  }
  noteDoubts(decoded.doubts, report);
  if (decoded.doubts.empty()) {
    warnOfNoise(decoded, report);
  }
  std::vector<Axis> const axes = axesOf(decoded, options);
  timer.tic();
  writeMaps(options, folder, decoded, axes);
  report.add({{"images", images.size()},
              {"pixels", counts.pixels},
              {"decoded", counts.decoded},
              {"notMeasured", notMeasuredReport(counts)},
              {"noise", decoded.noise},
              {"staircase", std::max(decoded.staircaseColumn, decoded.staircaseRow)},
              {"fringes", fringesReport(decoded)},
              {"whiteLevel", decoded.whiteLevel},
              {"times", {{"read", readTime}, {"decode", decodeTime}, {"write", timer.toc()}}}});
  std::cout << printed("%zu of %zu pixels decoded", counts.decoded, counts.pixels);
  if (counts.decoded < counts.pixels) {
    std::cout << "; the others: " << reasonText(counts);
  }
  std::cout << '\n';
  if (images[0].depth() != CV_8U && !(options.settings.whiteLevel > 0.0) && decoded.whiteLevel > 0.0) {
    std::cout << printed("taken for clipped from a grey value of %g on (--white-level to say otherwise)\n",
                         decoded.whiteLevel);
  }
  for (Axis const& axis : axes) {
    double const sigma = medianOfFinite(axis.sigma);
    report["sigma"][axis.name] = finiteOrNull(sigma);
    std::cout << printed("%ss to %.4f projector pixels (median), noise of an image %.2f grey levels\n",
                         axis.name, sigma, decoded.noise);
  }
}

} // namespace

void addDecodeCommand(CLI::App& app) {
  auto options = std::make_shared<DecodeOptions>();
  CLI::App* command = app.add_subcommand(
      "decode", "Find the projector coordinates that pixels see, from captured images of any pattern set");
  command->add_option("folder", options->folder, "Folder with the captured images")->required();
  command->add_option("--patterns", options->patterns,
                      "What the images show, a JSON file; default: pattern_set.json in the folder");
  command->add_option("-o,--out", options->out,
                      "Folder for column.tiff, row.tiff, sigma_column.tiff, sigma_row.tiff, "
                      "modulation.tiff and mask.png; made if need be");
  command->add_option("--column", options->column,
                      "Write the decoded columns: a picture, .svg, or CV_32F as .tiff");
  command->add_option("--row", options->row, "Write the decoded rows, likewise");
  mv::DecodeSettings& settings = options->settings;
  command
      ->add_option("--white-level", settings.whiteLevel,
                   "Grey value from which on a sample is clipped; 0: 255 in 8 bits, else as the images show")
      ->check(anyNumber());
  command->add_option("--black-level", settings.blackLevel, "Grey value of no light")->check(anyNumber());
  command
      ->add_option("--noise", settings.noise,
                   "Standard deviation of an image, grey values; 0: estimated from the images")
      ->check(anyNumber());
  command
      ->add_option("--min-modulation", settings.minModulation,
                   "Least amplitude of fringes or bits, grey values; -1: 3 in 8 bits, twice the noise else")
      ->check(anyNumber());
  command->add_option("--min-piece", settings.minSegmentSize, "Smallest connected piece that is kept, pixels")
      ->transform(wholeNumber<int>());
  command->add_flag("--alone", options->isAlone,
                    "Decode every pixel by itself: none takes the order of its fringe from neighbours");
  command->add_flag("--uncorrected", options->isUncorrected,
                    "Leave in what light that is not linear does to fringes of three and four steps, and the "
                    "staircase of a sharp projector");
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report", "counts and times in ms");
}

} // namespace vorn::tools
