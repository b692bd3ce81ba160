// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

// Usage: example_scan scanner.json columns_00.png columns_01.png ... cloud.ply
int main(int argc, char** argv) try {
  vorn::mv::Library::start(false);
  vorn::mv::Sl3dScanner scanner;
  vorn::load(argv[1], scanner);
  std::vector<cv::Mat> images;
  for (int i = 2; i < argc - 1; ++i) {
    images.push_back(cv::imread(argv[i], cv::IMREAD_GRAYSCALE));
  }
  vorn::mv::PointCloud cloud = vorn::mv::scan(scanner, images).cloud;
  cloud.filterSmallClusterOrganized(2.0F, 200);
  cloud.save(argv[argc - 1]);
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return 1;
}
