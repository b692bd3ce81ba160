// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// bench_captures FOLDER [SETS.json]: finds the targets in pictures of real cameras by the library and by
/// OpenCV, one thread, in one run, and prints a table: pictures found, points, errors of calibrations, time.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/system.hpp>
#include <vorn/core/variant.hpp>
#include <vorn/mv/core/library.hpp>

#include "capture_sets.hpp"
#include "grid_finders.hpp"
#include "grid_scores.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::bench {

namespace {

FoundSet run(GridFinder const& finder, CaptureSet const& set, std::vector<cv::Mat> const& images) {
  FoundSet found;
  found.imageSize = images.front().size();
  constexpr int runs = 3;
  for (cv::Mat const& image : images) {
    double least = std::numeric_limits<double>::infinity();
    FoundPoints points;
    for (int i = 0; i < runs; ++i) {
      std::clock_t const begin = std::clock(); // of the processor: others may use it too
      points = finder.find(image, set);
      least = std::min(least, 1000.0 * static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
    }
    found.pictures.push_back(std::move(points));
    found.times.push_back(least);
  }
  return found;
}

std::string text(std::optional<double> const& error) {
  char buffer[32] = "-";
  if (error) {
    std::snprintf(buffer, sizeof buffer, "%.4f", *error);
  }
  return buffer;
}

double medianOf(std::vector<double> times) {
  auto const middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

void print(CaptureSet const& set) {
  std::vector<cv::Mat> images;
  for (std::string const& file : set.files) {
    images.push_back(tools::readGrayImage(file));
  }
  std::vector<GridFinder> const finders = gridFinders(set.target.kind);
  std::vector<FoundSet> results;
  for (GridFinder const& finder : finders) {
    results.push_back(run(finder, set, images));
  }
  for (std::size_t i = 0; i < finders.size(); ++i) {
    std::string sharedRms = "-";
    std::string sharedHeldOut = "-";
    if (i > 0) { // of the same pictures and points, and what the library has there
      FoundSet const theirs = shared(results[i], results[0]);
      FoundSet const ours = shared(results[0], results[i]);
      sharedRms = text(calibrationError(theirs)) + " (" + text(calibrationError(ours)) + ")";
      sharedHeldOut = text(heldOutError(theirs)) + " (" + text(heldOutError(ours)) + ")";
    }
    std::printf("| %s | %s | %d/%zu | %d | %s | %s | %s | %s | %.1f |\n", set.name.c_str(),
                finders[i].name.c_str(), foundCount(results[i]), images.size(), pointCount(results[i]),
                text(calibrationError(results[i])).c_str(), text(heldOutError(results[i])).c_str(),
                sharedRms.c_str(), sharedHeldOut.c_str(), medianOf(results[i].times));
  }
}

} // namespace

} // namespace vorn::bench

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: bench_captures FOLDER [SETS.json]\n");
    return 2;
  }
  try {
    cv::setNumThreads(1);
    vorn::System::set("EnableDebugMode", vorn::Variant(false));
    vorn::mv::Library::start(false);
    std::puts("| set | finder | found | points | RMS [px] | held out [px] | RMS, shared (library's) | "
              "held out, shared (library's) | time [ms] |\n|---|---|---|---|---|---|---|---|---|");
    for (auto const& set : vorn::bench::captureSets(argv[1], argc > 2 ? argv[2] : "")) {
      vorn::bench::print(set);
    }
  } catch (std::exception const& e) {
    std::fprintf(stderr, "bench_captures: %s\n", e.what());
    return 1;
  }
  return 0;
}
