// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

using namespace vorn::mv;

struct Bar : vorn::Observer {
  bool onProgress(std::string_view stage, double fraction) override {
    std::cerr << '\r' << static_cast<int>(100 * fraction) << " % " << stage << "        " << std::flush;
    return true; // false stops the job
  }
};

std::vector<cv::Mat> read(std::string const& pattern) {
  std::vector<cv::String> names;
  cv::glob(pattern, names);
  std::vector<cv::Mat> images;
  for (cv::String const& name : names) {
    images.push_back(cv::imread(name, cv::IMREAD_GRAYSCALE));
  }
  return images;
}

// Usage: example_measure PITCH SCAN_FOLDER cloud.ply pose_00 pose_01 ...
int main(int argc, char** argv) try {
  Library::start(false);
  CalibrationSettings settings;
  settings.detector.setPatternDim(std::stod(argv[1])); // mm from dot to dot
  settings.detector.setMinDotArea(20.0);
  std::vector<std::string> const poses(argv + 4, argv + argc);
  auto const view = [&](std::size_t i) {
    return ScannerView{poses[i], read(poses[i] + "/target.png").at(0), read(poses[i] + "/columns_*.png"),
                       read(poses[i] + "/rows_*.png")};
  };
  Bar bar;
  ScannerCalibration const calibration = calibrateScanner(poses, view, settings, &bar);
  vorn::save("scanner.json", calibration.object);
  ScanResult const result = scan(calibration.object, read(std::string(argv[2]) + "/columns_*.png"), {}, &bar);
  auto const chain = nlohmann::json::parse(R"([{"class": "Dz", "properties": {"Dz": 2}}, {"class": "Outlier",
      "properties": {"Radius": 3, "MinNeighbourCount": 6}}])");
  PointCloud const cleaned = applyFilters(result.cloud, chain, &bar);
  cleaned.save(argv[3]);
  std::cout << cleaned.presentCount() << " of " << result.counts.pixels << " pixels have a point\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return 1;
}
