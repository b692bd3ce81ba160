// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/threshold_filters.hpp>

#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "imaging/filter_settings.hpp"
#include "imaging/local_average_threshold.hpp"

namespace vorn::mv {

namespace {

/// Passed where a threshold type makes no use of the maximum value.
constexpr double unusedMaxValue = 255.0;
/// Passed where OpenCV finds the threshold itself.
constexpr double ignoredThreshold = 0.0;

Property* maxValue() {
  return new Property("MaxValue", 255, 1, 255);
}

Property* inverted() {
  return new Property("Inverted", false);
}

Property* globalThreshold() {
  return new Property("Threshold", 127, 1, 255);
}

Property* adaptiveRadius() {
  return new Property("Radius", 1, 1, 50);
}

Property* offset() {
  return new Property("C", 2, 0, 50);
}

int binaryType(IPropertySet const& filter) {
  return boolOf(filter, "Inverted") ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY;
}

cv::Mat threshold(cv::Mat const& input, double value, double maxValue, int type) {
  cv::Mat output;
  cv::threshold(input, output, value, maxValue, type);
  return output;
}

cv::Mat adaptiveThreshold(IPropertySet const& filter, cv::Mat const& input, int mean) {
  cv::Mat output;
  cv::adaptiveThreshold(input, output, doubleOf(filter, "MaxValue"), mean, binaryType(filter),
                        kernelSize(filter).width, doubleOf(filter, "C"));
  return output;
}

} // namespace

BinaryThresholdFilter::BinaryThresholdFilter()
    : ImageFilterBase({maxValue(), globalThreshold(), inverted()}) {}

cv::Mat BinaryThresholdFilter::apply(cv::Mat const& input) const {
  return threshold(input, doubleOf(*this, "Threshold"), doubleOf(*this, "MaxValue"), binaryType(*this));
}

GaussianAdaptiveThresholdFilter::GaussianAdaptiveThresholdFilter()
    : ImageFilterBase({maxValue(), inverted(), adaptiveRadius(), offset()}) {}

cv::Mat GaussianAdaptiveThresholdFilter::apply(cv::Mat const& input) const {
  return adaptiveThreshold(*this, input, cv::ADAPTIVE_THRESH_GAUSSIAN_C);
}

LocalAverageAdaptiveThresholdFilter::LocalAverageAdaptiveThresholdFilter()
    : ImageFilterBase({maxValue(), inverted(), new Property("Radius", 5, 5, 50),
                       new Property("Threshold", 90, 0, 100)}) {}

cv::Mat LocalAverageAdaptiveThresholdFilter::apply(cv::Mat const& input) const {
  if (input.channels() != 1) {
    throw error("This method only work with grayscale image. (input.channels() == 1)", "apply");
  }
  if (input.dims > 2 || input.depth() != CV_8U) {
    throw error("This method only works with an 8-bit image. (input.type() == CV_8UC1)", "apply");
  }
  uchar const high = static_cast<uchar>(intOf(*this, "MaxValue"));
  bool const isInverted = boolOf(*this, "Inverted");
  LocalAverageThreshold rule{};
  rule.radius = intOf(*this, "Radius");
  rule.percent = intOf(*this, "Threshold");
  rule.passValue = isInverted ? uchar(0) : high;
  rule.failValue = isInverted ? high : uchar(0);
  cv::Mat output;
  localAverageThreshold(input, rule, output);
  return output;
}

MeanAdaptiveThresholdFilter::MeanAdaptiveThresholdFilter()
    : ImageFilterBase({maxValue(), inverted(), adaptiveRadius(), offset()}) {}

cv::Mat MeanAdaptiveThresholdFilter::apply(cv::Mat const& input) const {
  return adaptiveThreshold(*this, input, cv::ADAPTIVE_THRESH_MEAN_C);
}

OtsuThresholdFilter::OtsuThresholdFilter() : ImageFilterBase({maxValue()}) {}

cv::Mat OtsuThresholdFilter::apply(cv::Mat const& input) const {
  return threshold(input, ignoredThreshold, doubleOf(*this, "MaxValue"), cv::THRESH_OTSU);
}

ToZeroThresholdFilter::ToZeroThresholdFilter() : ImageFilterBase({globalThreshold(), inverted()}) {}

cv::Mat ToZeroThresholdFilter::apply(cv::Mat const& input) const {
  int const type = boolOf(*this, "Inverted") ? cv::THRESH_TOZERO_INV : cv::THRESH_TOZERO;
  return threshold(input, doubleOf(*this, "Threshold"), unusedMaxValue, type);
}

TriangleThresholdFilter::TriangleThresholdFilter() : ImageFilterBase({maxValue()}) {}

cv::Mat TriangleThresholdFilter::apply(cv::Mat const& input) const {
  return threshold(input, ignoredThreshold, doubleOf(*this, "MaxValue"), cv::THRESH_TRIANGLE);
}

TruncateThresholdFilter::TruncateThresholdFilter() : ImageFilterBase({globalThreshold()}) {}

cv::Mat TruncateThresholdFilter::apply(cv::Mat const& input) const {
  return threshold(input, doubleOf(*this, "Threshold"), unusedMaxValue, cv::THRESH_TRUNC);
}

} // namespace vorn::mv
