// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

// Usage: example_scan scanner.json columns_00.png columns_01.png ... cloud.ply
int main(int argc, char** argv) try {
  vorn::mv::Library::init();
  vorn::mv::Sl3dScanner scanner;
  scanner.read(nlohmann::json::parse(std::ifstream(argv[1])));
  std::vector<cv::Mat> images;
  for (int i = 2; i < argc - 1; ++i) {
    images.push_back(cv::imread(argv[i], cv::IMREAD_GRAYSCALE));
  }
  cv::Mat_<float> const map = scanner.decode(images);
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, cv::Rect(0, 0, map.cols, map.rows));
  vorn::mv::PointCloud cloud(xyz, true, {}, {});
  cloud.filterByZRange(1, 10000); // mm; unmeasured pixels lie at z = -1
  cloud.filterSmallClusterOrganized(2.0F, 200);
  cloud.saveToFile(argv[argc - 1], "ply");
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return 1;
}
