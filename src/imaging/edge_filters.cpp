// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/edge_filters.hpp>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/imaging/image_depth.hpp>

#include "imaging/filter_settings.hpp"

namespace vorn::mv {

namespace {

constexpr double scale = 1.0;
constexpr double delta = 0.0;

Property* outputDepth() {
  return new Property("Depth", ImageDepth());
}

int depthOf(IPropertySet const& filter) {
  IEnum const& depth = filter["Depth"];
  return dynamic_cast<ImageDepth const&>(depth).cvDepth();
}

} // namespace

CannyFilter::CannyFilter()
    : ImageFilterBase({new Property("Threshold1", 50, 0, 255), new Property("Threshold2", 100, 0, 255)}) {}

cv::Mat CannyFilter::apply(cv::Mat const& input) const {
  constexpr int aperture = 3;
  cv::Mat output;
  cv::Canny(input, output, intOf(*this, "Threshold1"), intOf(*this, "Threshold2"), aperture);
  return output;
}

LaplacianFilter::LaplacianFilter() : ImageFilterBase({radiusProperty(), outputDepth()}) {}

cv::Mat LaplacianFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::Laplacian(input, output, depthOf(*this), intOf(*this, "Radius"), scale, delta, cv::BORDER_DEFAULT);
  return output;
}

SobelFilter::SobelFilter()
    : ImageFilterBase(
          {radiusProperty(), outputDepth(), new Property("Dx", 1, -5, 5), new Property("Dy", 1, -5, 5)}) {}

cv::Mat SobelFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::Sobel(input, output, depthOf(*this), intOf(*this, "Dx"), intOf(*this, "Dy"), kernelSize(*this).width,
            scale, delta, cv::BORDER_DEFAULT);
  return output;
}

} // namespace vorn::mv
