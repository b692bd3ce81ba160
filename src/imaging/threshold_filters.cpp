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

int binaryType(IPropertySet const& filter) {
  return boolOf(filter, "Inverted") ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY;
}

cv::Mat thresholded(cv::Mat const& input, double value, double maxValue, int type) {
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
    : ImageFilterBase({maxValueRow(), thresholdRow(), invertedRow()}) {}

cv::Mat BinaryThresholdFilter::apply(cv::Mat const& input) const {
  return thresholded(input, threshold(), maxValue(), binaryType(*this));
}

GaussianAdaptiveThresholdFilter::GaussianAdaptiveThresholdFilter()
    : ImageFilterBase({maxValueRow(), invertedRow(), radiusRow(), cRow()}) {}

cv::Mat GaussianAdaptiveThresholdFilter::apply(cv::Mat const& input) const {
  return adaptiveThreshold(*this, input, cv::ADAPTIVE_THRESH_GAUSSIAN_C);
}

LocalAverageAdaptiveThresholdFilter::LocalAverageAdaptiveThresholdFilter()
    : ImageFilterBase({maxValueRow(), invertedRow(), radiusRow(), thresholdRow()}) {}

cv::Mat LocalAverageAdaptiveThresholdFilter::apply(cv::Mat const& input) const {
  if (input.channels() != 1) {
    throw error("This method only work with grayscale image. (input.channels() == 1)", "apply");
  }
  if (input.dims > 2 || input.depth() != CV_8U) {
    throw error("This method only works with an 8-bit image. (input.type() == CV_8UC1)", "apply");
  }
  uchar const high = static_cast<uchar>(maxValue());
  bool const isInverted = inverted();
  LocalAverageThreshold rule{};
  rule.radius = radius();
  rule.percent = threshold();
  rule.passValue = isInverted ? uchar(0) : high;
  rule.failValue = isInverted ? high : uchar(0);
  cv::Mat output;
  localAverageThreshold(input, rule, output);
  return output;
}

MeanAdaptiveThresholdFilter::MeanAdaptiveThresholdFilter()
    : ImageFilterBase({maxValueRow(), invertedRow(), radiusRow(), cRow()}) {}

cv::Mat MeanAdaptiveThresholdFilter::apply(cv::Mat const& input) const {
  return adaptiveThreshold(*this, input, cv::ADAPTIVE_THRESH_MEAN_C);
}

OtsuThresholdFilter::OtsuThresholdFilter() : ImageFilterBase({maxValueRow()}) {}

cv::Mat OtsuThresholdFilter::apply(cv::Mat const& input) const {
  return thresholded(input, ignoredThreshold, maxValue(), cv::THRESH_OTSU);
}

ToZeroThresholdFilter::ToZeroThresholdFilter() : ImageFilterBase({thresholdRow(), invertedRow()}) {}

cv::Mat ToZeroThresholdFilter::apply(cv::Mat const& input) const {
  int const type = inverted() ? cv::THRESH_TOZERO_INV : cv::THRESH_TOZERO;
  return thresholded(input, threshold(), unusedMaxValue, type);
}

TriangleThresholdFilter::TriangleThresholdFilter() : ImageFilterBase({maxValueRow()}) {}

cv::Mat TriangleThresholdFilter::apply(cv::Mat const& input) const {
  return thresholded(input, ignoredThreshold, maxValue(), cv::THRESH_TRIANGLE);
}

TruncateThresholdFilter::TruncateThresholdFilter() : ImageFilterBase({thresholdRow()}) {}

cv::Mat TruncateThresholdFilter::apply(cv::Mat const& input) const {
  return thresholded(input, threshold(), unusedMaxValue, cv::THRESH_TRUNC);
}

} // namespace vorn::mv
