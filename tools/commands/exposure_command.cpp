// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/measure/amat.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/white_level_option.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/figure_options.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"
#include "tools/scan/exposure_folder.hpp"

namespace vorn::tools {

namespace {

struct ExposureOptions {
  std::string folder;
  std::string picture;
  double whiteLevel = 0.0;
  FigureOptions look;
};

/// The mean image with what is clipped in red and what is dark in blue.
mv::AMat pictureOf(SequenceExposure const& sequence) {
  Exposure const& exposure = sequence.exposure;
  cv::Mat shown;
  cv::cvtColor(exposure.mean, shown, cv::COLOR_GRAY2BGR);
  cv::Mat const tinted = shown * 0.4;
  cv::Mat(tinted + cv::Scalar(mv::colorOf(mv::Meaning::Note)) * 0.45).copyTo(shown, exposure.isDark);
  shown.setTo(cv::Scalar(mv::colorOf(mv::Meaning::Dropped)), exposure.isClipped);
  mv::AMat picture(shown);
  std::string title = sequence.name + printed(": clipped (red) %.2f %%, dark (blue) %.1f %%",
                                              100.0 * exposure.clipped.all, 100.0 * exposure.dark.all);
  for (Advice const& advice : exposure.advice) {
    title += "\n" + advice.text;
  }
  picture.setTitle(title);
  return picture;
}

/// The sequence whose picture says most: the one with most pixels clipped or dark.
SequenceExposure const& worstOf(std::vector<SequenceExposure> const& all) {
  auto const badness = [](SequenceExposure const& one) {
    return 100.0 * one.exposure.clipped.all + one.exposure.dark.all;
  };
  SequenceExposure const* worst = all.data();
  for (SequenceExposure const& one : all) {
    worst = badness(one) > badness(*worst) ? &one : worst;
  }
  return *worst;
}

std::string numberOrDash(double value, char const* format) {
  return std::isfinite(value) ? printed(format, value) : "-";
}

/// A fault of several sequences.
struct CommonFault {
  std::size_t count = 0;
  SequenceExposure const* worst = nullptr;
  Advice const* advice = nullptr; ///< of the worst
};

std::map<Advice::Kind, CommonFault> faultsOf(std::vector<SequenceExposure> const& all) {
  std::map<Advice::Kind, CommonFault> faults;
  for (SequenceExposure const& one : all) {
    for (Advice const& advice : one.exposure.advice) {
      CommonFault& fault = faults[advice.kind];
      ++fault.count;
      if (fault.advice == nullptr || advice.strength > fault.advice->strength) {
        fault.worst = &one;
        fault.advice = &advice;
      }
    }
  }
  return faults;
}

void print(FolderExposure const& folder) {
  std::vector<SequenceExposure> const& all = folder.sequences;
  std::size_t width = 12;
  for (SequenceExposure const& one : all) {
    width = std::max(width, one.name.size());
  }
  auto const column = static_cast<int>(width);
  // What every sequence has is told once: repeated, it would hide the rest.
  std::map<Advice::Kind, CommonFault> const faults = faultsOf(all);
  constexpr std::size_t many = 3;
  auto const isShared = [&](Advice::Kind kind) {
    return all.size() >= many && faults.at(kind).count == all.size();
  };
  std::cout << printed("%-*s %9s %7s %7s %10s %7s %9s %8s\n", column, "sequence", "clipped %", "dark %",
                       "bright", "amplitude", "noise", "sigma px", "blur px");
  for (SequenceExposure const& one : all) {
    Exposure const& e = one.exposure;
    std::cout << printed("%-*s %9.3f %7.2f %7.0f %10s %7s %9s %8s\n", column, one.name.c_str(),
                         100.0 * e.clipped.all, 100.0 * e.dark.all, e.bright,
                         numberOrDash(e.amplitude, "%.2f").c_str(), numberOrDash(e.noise, "%.2f").c_str(),
                         numberOrDash(e.sigma, "%.4f").c_str(), numberOrDash(e.blur.all, "%.2f").c_str());
    for (Advice const& advice : e.advice) {
      if (!isShared(advice.kind)) {
        std::cout << printed("  -> %s\n", advice.text.c_str());
      }
    }
  }
  for (auto const& [kind, fault] : faults) {
    if (isShared(kind)) {
      std::cout << printed("all %zu sequences, most of all %s:\n  -> %s\n", all.size(),
                           fault.worst->name.c_str(), fault.advice->text.c_str());
    }
  }
  std::cout
      << "sigma: of the projector coordinates that follow from the fringes; bright, amplitude and noise in "
         "grey values of 255\n";
  if (folder.whiteLevel > 0.0) {
    std::cout << printed("full pixels of the deep pictures are taken to have %.6g, which counts as 255\n",
                         folder.whiteLevel);
  }
}

nlohmann::json toJson(Spread const& spread) {
  nlohmann::json ninths = nlohmann::json::array();
  for (double const value : spread.ninths) {
    ninths.push_back(finiteOrNull(value));
  }
  return ninths;
}

nlohmann::json toJson(std::vector<SequenceExposure> const& all) {
  nlohmann::json json = nlohmann::json::array();
  for (SequenceExposure const& one : all) {
    Exposure const& e = one.exposure;
    nlohmann::json advice = nlohmann::json::array();
    for (Advice const& each : e.advice) {
      advice.push_back(each.text);
    }
    json.push_back(
        {{"name", one.name},
         {"images", one.images},
         {"clipped", e.clipped.all},
         {"dark", e.dark.all},
         {"bright", e.bright},
         {"amplitude", finiteOrNull(e.amplitude)},
         {"noise", finiteOrNull(e.noise)},
         {"sigma", finiteOrNull(e.sigma)},
         {"blur", finiteOrNull(e.blur.all)},
         {"ninths", {{"clipped", toJson(e.clipped)}, {"dark", toJson(e.dark)}, {"blur", toJson(e.blur)}}},
         {"advice", advice}});
  }
  return json;
}

void run(ExposureOptions const& options, Report& report) {
  checkFigurePath(options.picture);
  std::vector<std::string> files;
  for (CapturedSequence const& sequence : sequencesIn(options.folder)) {
    files.insert(files.end(), sequence.files.begin(), sequence.files.end());
  }
  report.declare(files, {options.picture});
  FolderExposure const all =
      watched([&](Observer* bar) { return exposuresOf(options.folder, options.whiteLevel, bar); });
  if (!options.picture.empty()) {
    writeFigure(options.picture, pictureOf(worstOf(all.sequences)), options.look.drawSettings());
  }
  print(all);
  report["sequences"] = toJson(all.sequences);
  if (all.whiteLevel > 0.0) {
    report["whiteLevel"] = all.whiteLevel;
  }
}

} // namespace

void addExposureCommand(CLI::App& app) {
  auto options = std::make_shared<ExposureOptions>();
  CLI::App* command =
      app.add_subcommand("exposure", "Judge the exposure of captured images, and say what to change");
  command
      ->add_option(
          "folder", options->folder,
          "Folder with columns_00.png, ..., or any pictures; without any, the folders in it are judged")
      ->required();
  command->add_option("--picture", options->picture,
                      "Picture (or .svg) of what is clipped and dark, of the sequence that has most of it");
  addWhiteLevelOption(*command, options->whiteLevel);
  options->look.addLight(*command);
  setWork(
      *command, [=](Report& report) { run(*options, report); }, "--report",
      "the exposure of each sequence and what to change");
}

} // namespace vorn::tools
