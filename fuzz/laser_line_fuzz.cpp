// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Laser line extraction from small images of any content, with any options.
#include <cmath>

#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/laser_line.hpp>

#include "byte_source.hpp"
#include "require.hpp"

namespace vorn::fuzz {
namespace {

double quantity(ByteSource& source, int high) {
  return source.number(0, 15) == 0 ? source.any<double>() : source.number(0, high * 4) / 4.0;
}

mv::LaserLineOptions anyOptions(ByteSource& source) {
  mv::LaserLineOptions options;
  options.direction = source.flag() ? options.direction : mv::LaserLineOptions::Direction::PerRow;
  options.method = source.flag() ? options.method : mv::LaserLineOptions::Method::CentreOfGravity;
  if (source.flag()) {
    return options;
  }
  options.width = quantity(source, 12);
  options.minWidth = quantity(source, 10);
  options.maxWidth = quantity(source, 12);
  options.minContrast = quantity(source, 40);
  options.saturation = source.number(0, 255);
  options.maxSaturated = source.number(-1, 20);
  options.maxPeaks = source.number(-1, 6);
  options.dropMoved = source.flag();
  return options;
}

/// A stripe with the content of `matrix` on top, so that there is something to find.
cv::Mat anyImage(ByteSource& source) {
  constexpr int types[] = {CV_8UC1, CV_8UC1, CV_8UC1, CV_8UC3, CV_8UC4, CV_16UC1, CV_32FC1};
  cv::Mat image = source.matrix({source.number(0, 60), source.number(0, 60)}, source.oneOf(types));
  if (image.depth() == CV_8U && !image.empty() && source.flag()) {
    cv::Mat stripe(image.size(), image.type(), cv::Scalar::all(0));
    cv::line(stripe, {0, source.number(0, 60)}, {60, source.number(0, 60)}, cv::Scalar::all(255),
             source.number(1, 8));
    cv::GaussianBlur(stripe, stripe, {}, source.number(1, 12) / 4.0);
    cv::addWeighted(image, source.number(0, 4) / 8.0, stripe, source.number(0, 8) / 4.0, 0, image);
  }
  return image;
}

void tryExtraction(ByteSource& source) {
  cv::Mat const image = anyImage(source);
  mv::LaserLineOptions const options = anyOptions(source);
  try {
    for (mv::LaserPeak const& peak : mv::extract_laser_peaks(image, options)) {
      cv::Point2f const place = peak.point;
      bool const isInside = place.x >= 0 && place.y >= 0 && place.x <= static_cast<float>(image.cols - 1) &&
                            place.y <= static_cast<float>(image.rows - 1);
      require(isInside && std::isfinite(peak.width) && std::isfinite(peak.contrast),
              "a peak lies within the image");
    }
  } catch (Exception const&) {
  }
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    vorn::fuzz::ByteSource source(data, size);
    vorn::fuzz::tryExtraction(source);
  });
}
