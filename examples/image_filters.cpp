// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/core/json_file.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/imaging/smoothing_filters.hpp>

int main(int argc, char** argv) try {
  if (argc != 5) {
    throw std::invalid_argument("usage: example_image_filters in.png chain.json marks.png result.png");
  }
  cv::Mat const image = cv::imread(argv[1], cv::IMREAD_GRAYSCALE);
  nlohmann::json const json = vorn::readJsonFile(argv[2]);

  vorn::mv::GaussianFilter gaussian;
  gaussian.setRadius(3);
  cv::Mat const smooth = gaussian.apply(image);

  auto const filter = vorn::mv::createImageFilter("LocalAverageAdaptiveThreshold");
  filter->getProperty("Radius") = 8; // a value out of range is refused with an Exception
  cv::Mat const marks = filter->apply(smooth);
  cv::imwrite(argv[3], marks);

  auto const chain = vorn::readFilterChain(json, vorn::mv::imageFilters());
  cv::Mat const result = vorn::mv::applyFilters(chain, image);
  cv::imwrite(argv[4], result);
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
