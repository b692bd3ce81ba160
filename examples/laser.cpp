// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

int main(int argc, char** argv) try {
  if (argc < 5) {
    throw std::invalid_argument(
        "usage: example_laser laser.json STEP_Y line_00.png line_01.png ... cloud.ply");
  }
  vorn::mv::Library::start(false);
  vorn::mv::LineScanner scanner;
  vorn::load(argv[1], scanner);
  // How the stage moves the scene from one image to the next, mm in the camera's frame.
  cv::Point3f const step(0, std::stof(argv[2]), 0);
  vorn::mv::LaserLineOptions line;
  line.direction = vorn::mv::LaserLineOptions::Direction::PerColumn; // the line runs across the image
  line.minContrast = 20;

  vorn::graphic::GraphicObject cloud;
  for (int i = 3; i < argc - 1; ++i) {
    cv::Mat const image = cv::imread(argv[i], cv::IMREAD_ANYCOLOR);
    auto const pixels = vorn::mv::extract_laser_line(image, line);
    for (cv::Point3f const& p : scanner.triangulate(pixels, 0, {0, 0})) {
      if (std::isfinite(p.z) && p.z > 0) {
        cloud.vertices().push_back(p - static_cast<float>(i - 3) * step);
      }
    }
  }
  vorn::graphic::PLYFile().write(argv[argc - 1], cloud);
  std::cout << cloud.vertices().size() << " points\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
