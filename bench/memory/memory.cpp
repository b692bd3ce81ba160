// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What operations take from the heap beyond their input and result, per pixel or point, beside what
// docs/memory.md says. --check takes small inputs and fails where the two do not agree.
#include <cmath>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>

#include "memory_case.hpp"

namespace vorn::bench {

namespace {

std::vector<MemoryCase> allCases() {
  std::vector<MemoryCase> all;
  for (auto const& cases : {scanCases(), calibrationCases(), imageCases(), cloudCases(), registrationCases(),
                            fileCases(), jobCases()}) {
    all.insert(all.end(), cases.begin(), cases.end());
  }
  return all;
}

/// An image of 4 : 3, and clouds of a quarter as many points.
Sizes sizesOf(double megapixels) {
  double const side = std::sqrt(megapixels * 1e6 / 12);
  return {{cvRound(4 * side), cvRound(3 * side)}, cvRound(std::sqrt(megapixels * 1e6 / 4))};
}

/// The operations of a page and their limits: rows of tables whose first two cells are a name and a number.
std::map<std::string, double> readLimits(std::string const& path) {
  std::ifstream page(path);
  std::map<std::string, double> limits;
  for (std::string line; std::getline(page, line);) {
    std::size_t const name = line.find("| `");
    std::size_t const number = line.find(" | ", name == std::string::npos ? 0 : name + 1);
    std::istringstream text(number == std::string::npos ? "" : line.substr(number + 3));
    double limit = 0;
    if (name == 0 && text >> limit) {
      limits[line.substr(2, number - 2)] = limit;
    }
  }
  return limits;
}

/// Whether what an operation takes is what the page says: no more, and not so little that the page misleads.
/// Lists that double their room take more or less of it with the size of the input.
bool agree(double measured, double limit) {
  constexpr double roomFactor = 3;
  constexpr double room = 2; // bytes
  return measured <= limit && limit <= roomFactor * measured + room;
}

int run(Sizes const& sizes, std::string const& page, std::string const& only) {
  std::map<std::string, double> limits = readLimits(page);
  int disagreeing = 0;
  std::cout << "| operation | at most | measured |\n|---|---|---|\n";
  std::ostringstream chatter; // of the operations
  for (MemoryCase const& each : allCases()) {
    auto const limit = limits.find(each.name);
    bool const isDocumented = limit != limits.end();
    double const most = isDocumented ? limit->second : 0;
    if (isDocumented) {
      limits.erase(limit);
    }
    if (each.name.find(only) == std::string::npos) {
      continue;
    }
    std::streambuf* const output = std::cout.rdbuf(chatter.rdbuf());
    double const measured = each.measure(sizes);
    std::cout.rdbuf(output);
    bool const agrees = isDocumented && agree(measured, most);
    disagreeing += agrees ? 0 : 1;
    std::cout << cv::format("| %s | %s | %.2f |%s\n", each.name.c_str(),
                            isDocumented ? cv::format("%g", most).c_str() : "-", measured,
                            agrees ? "" : " <- disagrees")
              << std::flush;
  }
  for (auto const& [name, limit] : limits) {
    std::cout << cv::format("| %s | %g | no such operation |\n", name.c_str(), limit);
    ++disagreeing;
  }
  return disagreeing;
}

} // namespace

} // namespace vorn::bench

int main(int argc, char** argv) {
  CLI::App app("Bytes that operations take beyond their input and result, per pixel or point");
  double megapixels = 12;
  std::string page;
  std::string only;
  app.add_option("--megapixels", megapixels, "Pixels of the images; clouds have a quarter as many points")
      ->check(CLI::Range(0.1, 100.0));
  app.add_option("--only", only, "Operations whose name contains this");
  auto* const check = app.add_option("--check", page, "Small inputs; fail where this page says otherwise");
  CLI11_PARSE(app, argc, argv);
  try {
    vorn::mv::Library::init();
    vorn::System::set("EnableDebugMode", vorn::Variant(false));
    // Each thread has some memory of its own; and OpenCV's kernels have more on the GPU's side.
    cv::setNumThreads(1);
    bool const isCheck = check->count() > 0;
    int const disagreeing = vorn::bench::run(vorn::bench::sizesOf(isCheck ? 1 : megapixels), page, only);
    return isCheck && disagreeing > 0 ? 1 : 0;
  } catch (std::exception const& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
  }
}
