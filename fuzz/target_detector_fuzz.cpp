// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The target detector on small and odd images, with dots in them or not.
#include <cmath>

#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>

#include "byte_source.hpp"
#include "require.hpp"

namespace vorn::fuzz {
namespace {

/// Values within and outside of the ranges.
void configure(mv::CalibPatternDetector& detector, ByteSource& source) {
  for (int changes = source.number(0, 6); changes > 0; --changes) {
    auto const names = detector.getPropertyNames();
    std::string const& name = names[source.byte() % names.size()];
    try {
      detector[name] = Variant(source.flag() ? source.number(-31, 31) : source.number(0, 250) / 10.0);
    } catch (Exception const&) {
      continue; // keeps its value
    }
  }
}

/// A skewed grid of dots, some larger, some gone, some out of place.
void drawDots(cv::Mat& image, ByteSource& source) {
  int const pitch = source.number(6, 30);
  int const radius = std::max(1, pitch / source.number(3, 6));
  int const skew = source.number(-6, 6);
  cv::Scalar const color = cv::Scalar::all(source.byte());
  for (int row = 0; row < 9; ++row) {
    for (int column = 0; column < 9; ++column) {
      std::uint8_t const kind = source.byte();
      cv::Point const place(column * pitch + row * skew + pitch / 2,
                            row * pitch + column * skew / 2 + pitch / 2);
      int const grown = (kind & 7) == 7 ? radius + radius / 2 : radius;
      if ((kind & 0xE0) != 0xE0) {
        cv::circle(image, place + cv::Point((kind & 0x18) == 0x18 ? 2 : 0, 0), grown, color, cv::FILLED,
                   cv::LINE_AA);
      }
    }
  }
  int const blur = source.number(0, 8);
  if (blur > 0) {
    cv::GaussianBlur(image, image, {}, blur / 4.0, 0, cv::BORDER_DEFAULT | cv::BORDER_ISOLATED);
  }
}

void tryDetector(ByteSource& source) {
  constexpr int types[] = {CV_8UC1, CV_8UC1, CV_8UC3, CV_8UC4, CV_16UC1, CV_32FC1};
  cv::Mat image = source.matrix({source.number(0, 200), source.number(0, 200)}, source.oneOf(types));
  if (!image.empty() && source.flag()) {
    drawDots(image, source);
  }
  mv::CalibPatternDetector detector;
  configure(detector, source);
  try {
    mv::CalibPatternDetector::Result const result = detector.detect(image);
    for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
      bool const isInside = point.imgPnt.x >= 0 && point.imgPnt.y >= 0 &&
                            point.imgPnt.x <= static_cast<float>(image.cols) &&
                            point.imgPnt.y <= static_cast<float>(image.rows);
      require(isInside && std::isfinite(point.objPnt.x) && std::isfinite(point.objPnt.y),
              "a dot lies within the image");
    }
    result.draw(image, 3, {0, 0, 255}, {0, 255, 0});
  } catch (Exception const&) {
  }
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    vorn::fuzz::ByteSource source(data, size);
    vorn::fuzz::tryDetector(source);
  });
}
