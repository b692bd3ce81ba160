// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include <vorn/mv/core/image.hpp>
#include <vorn/mv/imaging/image_filters.hpp>

#include "memory_case.hpp"

namespace vorn::bench {

namespace {

double filter(std::string const& name, cv::Size const& size) {
  cv::Mat image(size, CV_8U);
  cv::randu(image, 0, 256);
  std::unique_ptr<mv::IImageFilter> const made = mv::createImageFilter(name);
  return workingBytes(image.total(), [&] { return made->apply(image); });
}

template <class Convert>
double convert(cv::Size const& size, Convert const& toMatrix) {
  cv::Mat const pixels = cv::Mat::zeros(size, CV_8UC3);
  mv::Image const image(pixels.data, size.width, size.height, {mv::PixelFormat::Order::RGB, 8});
  return workingBytes(pixels.total(), [&] { return toMatrix(image); });
}

} // namespace

std::vector<MemoryCase> imageCases() {
  std::vector<MemoryCase> cases = {
      {"`toBGRMat`", [](Sizes const& s) { return convert(s.image, mv::toBGRMat); }},
      {"`toMat`", [](Sizes const& s) { return convert(s.image, mv::toMat); }},
      {"`toGrayMat`", [](Sizes const& s) { return convert(s.image, mv::toGrayMat); }},
  };
  for (std::string const& name : mv::imageFilters().names()) {
    cases.push_back({"`" + name.substr(name.rfind(':') + 1) + "`",
                     [name](Sizes const& s) { return filter(name, s.image); }});
  }
  return cases;
}

} // namespace vorn::bench
