// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/edge_filters.hpp>

#include <opencv2/imgproc.hpp>

#include "imaging/filter_settings.hpp"

namespace vorn::mv {

namespace {

constexpr double scale = 1.0;
constexpr double delta = 0.0;

} // namespace

CannyFilter::CannyFilter() : ImageFilterBase({threshold1Row(), threshold2Row()}) {}

cv::Mat CannyFilter::apply(cv::Mat const& input) const {
  constexpr int aperture = 3;
  cv::Mat output;
  cv::Canny(input, output, threshold1(), threshold2(), aperture);
  return output;
}

LaplacianFilter::LaplacianFilter() : ImageFilterBase({radiusRow(), depthRow()}) {}

cv::Mat LaplacianFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::Laplacian(input, output, depth().cvDepth(), radius(), scale, delta, cv::BORDER_DEFAULT);
  return output;
}

SobelFilter::SobelFilter() : ImageFilterBase({radiusRow(), depthRow(), dxRow(), dyRow()}) {}

cv::Mat SobelFilter::apply(cv::Mat const& input) const {
  cv::Mat output;
  cv::Sobel(input, output, depth().cvDepth(), dx(), dy(), kernelSize(*this).width, scale, delta,
            cv::BORDER_DEFAULT);
  return output;
}

} // namespace vorn::mv
