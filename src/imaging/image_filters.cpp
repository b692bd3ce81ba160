// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/image_filters.hpp>

#include <vorn/mv/imaging/edge_filters.hpp>
#include <vorn/mv/imaging/morphology_filters.hpp>
#include <vorn/mv/imaging/smoothing_filters.hpp>
#include <vorn/mv/imaging/threshold_filters.hpp>

namespace vorn::mv {

IImageFilter::~IImageFilter() = default;

Registry<IImageFilter> const& imageFilters() {
  static Registry<IImageFilter> const registry = Registry<IImageFilter>::of<
      BilateralFilter, BlurFilter, BoxFilter, GaussianFilter, MedianFilter, CannyFilter, LaplacianFilter,
      SobelFilter, DilateFilter, ErodeFilter, BinaryThresholdFilter, GaussianAdaptiveThresholdFilter,
      LocalAverageAdaptiveThresholdFilter, MeanAdaptiveThresholdFilter, OtsuThresholdFilter,
      ToZeroThresholdFilter, TriangleThresholdFilter, TruncateThresholdFilter>();
  return registry;
}

std::unique_ptr<IImageFilter> createImageFilter(std::string const& name) {
  return imageFilters().create(name);
}

cv::Mat applyFilters(FilterChain<IImageFilter> const& chain, cv::Mat const& input) {
  cv::Mat image = chain.empty() ? input.clone() : input;
  for (auto const& filter : chain) {
    image = filter->apply(image);
  }
  return image;
}

} // namespace vorn::mv
