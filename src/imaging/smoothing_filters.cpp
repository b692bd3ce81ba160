// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/smoothing_filters.hpp>

#include <cmath>
#include <sstream>

#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "imaging/filter_settings.hpp"

namespace vorn::mv {

namespace {

cv::Point const kernelCentre(-1, -1);

/// OpenCV's filter divides the range of a float image into a table, and reads beyond it for an infinite
/// range.
void assertFiniteRange(cv::Mat const& input) {
  if (input.depth() == CV_32F && !input.empty()) {
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(input.reshape(1), &low, &high);
    if (!std::isfinite(static_cast<float>(high - low) * static_cast<float>(input.channels()))) {
      std::ostringstream range;
      range << "Pixels between " << low << " and " << high << " are too far apart for the filter";
      throw error(range.str(), "BilateralFilter");
    }
  }
}

} // namespace

BilateralFilter::BilateralFilter() : ImageFilterBase({diameterRow(), sigmaColorRow(), sigmaSpaceRow()}) {}

cv::Mat BilateralFilter::apply(cv::Mat const& input) const {
  assertFiniteRange(input);
  cv::Mat output;
  cv::bilateralFilter(input, output, diameter(), sigmaColor(), sigmaSpace(), cv::BORDER_DEFAULT);
  return output;
}

BlurFilter::BlurFilter() : ImageFilterBase({radiusRow()}) {}

cv::Mat BlurFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::blur(input, output, kernelSize(*this), kernelCentre, cv::BORDER_DEFAULT);
  return output;
}

BoxFilter::BoxFilter() : ImageFilterBase({radiusRow()}) {}

cv::Mat BoxFilter::apply(cv::Mat const& input) const {
  constexpr int depthOfInput = -1;
  constexpr bool normalize = true;
  cv::Mat output;
  cv::boxFilter(input, output, depthOfInput, kernelSize(*this), kernelCentre, normalize, cv::BORDER_DEFAULT);
  return output;
}

GaussianFilter::GaussianFilter() : ImageFilterBase({radiusRow(), sigmaXRow(), sigmaYRow()}) {}

cv::Mat GaussianFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::GaussianBlur(input, output, kernelSize(*this), sigmaX(), sigmaY(), cv::BORDER_DEFAULT);
  return output;
}

MedianFilter::MedianFilter() : ImageFilterBase({radiusRow()}) {}

cv::Mat MedianFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::medianBlur(input, output, kernelSize(*this).width);
  return output;
}

} // namespace vorn::mv
