// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/morphology_filters.hpp>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/imaging/morph_shape.hpp>

#include "imaging/filter_settings.hpp"

namespace vorn::mv {

namespace {

Property* shape() {
  return new Property("Shape", MorphShape());
}

cv::Mat neighbourhood(IPropertySet const& filter) {
  IEnum const& shape = filter["Shape"];
  return cv::getStructuringElement(dynamic_cast<MorphShape const&>(shape).cvShape(), kernelSize(filter));
}

} // namespace

DilateFilter::DilateFilter() : ImageFilterBase({radiusProperty(), shape()}) {}

cv::Mat DilateFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::dilate(input, output, neighbourhood(*this));
  return output;
}

ErodeFilter::ErodeFilter() : ImageFilterBase({radiusProperty(), shape()}) {}

cv::Mat ErodeFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::erode(input, output, neighbourhood(*this));
  return output;
}

} // namespace vorn::mv
