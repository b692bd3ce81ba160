// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/morphology_filters.hpp>

#include <opencv2/imgproc.hpp>

#include "imaging/filter_settings.hpp"

namespace vorn::mv {

namespace {

template <class Filter>
cv::Mat neighbourhood(Filter const& filter) {
  return cv::getStructuringElement(filter.shape().cvShape(), kernelSize(filter));
}

} // namespace

DilateFilter::DilateFilter() : ImageFilterBase({radiusRow(), shapeRow()}) {}

cv::Mat DilateFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::dilate(input, output, neighbourhood(*this));
  return output;
}

ErodeFilter::ErodeFilter() : ImageFilterBase({radiusRow(), shapeRow()}) {}

cv::Mat ErodeFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::erode(input, output, neighbourhood(*this));
  return output;
}

} // namespace vorn::mv
