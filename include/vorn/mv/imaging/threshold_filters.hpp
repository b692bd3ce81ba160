// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/imaging/image_filter.hpp>

namespace vorn::mv {

/// Splits the image at one value: pixels above it become MaxValue, others 0 (cv::threshold).
class VORN_API BinaryThresholdFilter : public ImageFilterBase<BinaryThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::BinaryThresholdFilter";
  BinaryThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value of pixels that pass.
  VORN_PROPERTY(int, maxValue, MaxValue, 255, 1, 255);

  /// The value that splits.
  VORN_PROPERTY(int, threshold, Threshold, 127, 1, 255);

  /// Swaps the two results.
  VORN_PROPERTY(bool, inverted, Inverted, false);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Splits the image at the Gaussian-weighted mean of each pixel's neighbourhood less C: pixels above become
/// MaxValue, others 0 (cv::adaptiveThreshold). Pixels beyond the edge repeat the last one. Working memory: 4
/// bytes a pixel.
///
/// Input: CV_8UC1.
class VORN_API GaussianAdaptiveThresholdFilter : public ImageFilterBase<GaussianAdaptiveThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::GaussianAdaptiveThresholdFilter";
  GaussianAdaptiveThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value of pixels that pass.
  VORN_PROPERTY(int, maxValue, MaxValue, 255, 1, 255);

  /// Swaps the two results.
  VORN_PROPERTY(bool, inverted, Inverted, false);

  /// The neighbourhood is a square of 2 * Radius + 1 pixels.
  VORN_PROPERTY(int, radius, Radius, 1, 1, 50);

  /// Taken off the mean, grey levels.
  VORN_PROPERTY(int, c, C, 2, 0, 50);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Splits the image at a percentage of each pixel's local mean: pixels that reach it become MaxValue, others
/// 0. With the defaults a pixel turns white when it is at least 90 % of the mean of the 10 x 10 pixels around
/// it.
///
/// The window of the pixel (x, y) covers the columns x - Radius + 1 to x + Radius and the rows y - Radius + 1
/// to y + Radius. With W its sum, the pixel passes when its value >= W * Threshold / (400 * Radius * Radius),
/// in whole numbers, the division rounded down. Pixels without a whole window (within Radius + 1 of the left
/// or top edge, within Radius of the right or bottom one) keep their value; an image smaller than 2 * Radius
/// + 2 in either dimension is returned unchanged.
///
/// The result holds for images of any size: window sums slide from row to row and no sum over the image is
/// formed that could leave the range of its type, as a 32-bit integral image does above 8.4 million white
/// pixels. A region of a larger image is treated as an image of its own.
///
/// Input: CV_8UC1.
/// @throws Exception from `apply` for an image that is not 8-bit or of several channels
class VORN_API LocalAverageAdaptiveThresholdFilter
    : public ImageFilterBase<LocalAverageAdaptiveThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::LocalAverageAdaptiveThresholdFilter";
  LocalAverageAdaptiveThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value of pixels that pass.
  VORN_PROPERTY(int, maxValue, MaxValue, 255, 1, 255);

  /// Swaps the two results.
  VORN_PROPERTY(bool, inverted, Inverted, false);

  /// Half the window's side, px.
  VORN_PROPERTY(int, radius, Radius, 5, 5, 50);

  /// Percent of the local mean.
  VORN_PROPERTY(int, threshold, Threshold, 90, 0, 100);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Splits the image at the mean of each pixel's neighbourhood less C: pixels above become MaxValue, others 0
/// (cv::adaptiveThreshold). Pixels beyond the edge repeat the last one.
///
/// Input: CV_8UC1.
class VORN_API MeanAdaptiveThresholdFilter : public ImageFilterBase<MeanAdaptiveThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::MeanAdaptiveThresholdFilter";
  MeanAdaptiveThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value of pixels that pass.
  VORN_PROPERTY(int, maxValue, MaxValue, 255, 1, 255);

  /// Swaps the two results.
  VORN_PROPERTY(bool, inverted, Inverted, false);

  /// The neighbourhood is a square of 2 * Radius + 1 pixels.
  VORN_PROPERTY(int, radius, Radius, 1, 1, 50);

  /// Taken off the mean, grey levels.
  VORN_PROPERTY(int, c, C, 2, 0, 50);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Splits the image at the value that separates its histogram into the two most distinct classes (method of
/// Otsu, 1979; cv::threshold): pixels above become MaxValue, others 0.
///
/// Input: one channel, 8-bit or CV_16U.
class VORN_API OtsuThresholdFilter : public ImageFilterBase<OtsuThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::OtsuThresholdFilter";
  OtsuThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value of pixels that pass.
  VORN_PROPERTY(int, maxValue, MaxValue, 255, 1, 255);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Keeps the pixels above a value and sets others to 0 (cv::threshold).
class VORN_API ToZeroThresholdFilter : public ImageFilterBase<ToZeroThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::ToZeroThresholdFilter";
  ToZeroThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value that splits.
  VORN_PROPERTY(int, threshold, Threshold, 127, 1, 255);

  /// Keeps the others and sets those above to 0.
  VORN_PROPERTY(bool, inverted, Inverted, false);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Splits the image at the value farthest below the line from the peak of its histogram to the histogram's
/// end (triangle method of Zack, 1977; cv::threshold): pixels above become MaxValue, others 0.
///
/// Input: CV_8UC1.
class VORN_API TriangleThresholdFilter : public ImageFilterBase<TriangleThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::TriangleThresholdFilter";
  TriangleThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value of pixels that pass.
  VORN_PROPERTY(int, maxValue, MaxValue, 255, 1, 255);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Cuts the image off at a value: pixels above become that value, others stay (cv::threshold).
class VORN_API TruncateThresholdFilter : public ImageFilterBase<TruncateThresholdFilter> {
public:
  static constexpr char const* className = "vorn::mv::TruncateThresholdFilter";
  TruncateThresholdFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The value that splits.
  VORN_PROPERTY(int, threshold, Threshold, 127, 1, 255);

protected:
  using ImageFilterBase::ImageFilterBase;
};

} // namespace vorn::mv
