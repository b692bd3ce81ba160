// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/imaging/image_filter.hpp>

namespace vorn::mv {

/// Smooths while it keeps edges: the mean of a round neighbourhood, weighted by distance and by likeness of
/// value (cv::bilateralFilter).
///
/// Input: 8-bit or CV_32F, one or three channels.
class VORN_API BilateralFilter : public ImageFilterBase<BilateralFilter> {
public:
  static constexpr char const* className = "vorn::mv::BilateralFilter";
  BilateralFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// Diameter of the neighbourhood, px.
  VORN_PROPERTY(int, diameter, Diameter, 1, 1, 32);

  /// Sigma of the difference in value.
  VORN_PROPERTY(double, sigmaColor, SigmaColor, 1.0, 1.0, 10.0);

  /// Sigma of the distance, px.
  VORN_PROPERTY(double, sigmaSpace, SigmaSpace, 1.0, 1.0, 10.0);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Smooths with the mean of a square of 2 * Radius + 1 pixels (cv::blur).
class VORN_API BlurFilter : public ImageFilterBase<BlurFilter> {
public:
  static constexpr char const* className = "vorn::mv::BlurFilter";
  BlurFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// Half the side of the square, px; 0 copies the image.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Smooths with the mean of a square of 2 * Radius + 1 pixels (cv::boxFilter, normalised, in the depth of the
/// input).
class VORN_API BoxFilter : public ImageFilterBase<BoxFilter> {
public:
  static constexpr char const* className = "vorn::mv::BoxFilter";
  BoxFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// Half the side of the square, px; 0 copies the image.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Smooths with a Gaussian kernel, cut to a square of 2 * Radius + 1 pixels (cv::GaussianBlur).
class VORN_API GaussianFilter : public ImageFilterBase<GaussianFilter> {
public:
  static constexpr char const* className = "vorn::mv::GaussianFilter";
  GaussianFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// Half the side of the square, px; 0 copies the image.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

  /// Sigma in x, px; 0 takes it from the radius, as 0.3 * (Radius - 1) + 0.8.
  VORN_PROPERTY(double, sigmaX, SigmaX, 1.0, 0.0, 32.0);

  /// Sigma in y, px; 0 takes SigmaX, or the same rule when that is 0 too.
  VORN_PROPERTY(double, sigmaY, SigmaY, 1.0, 0.0, 32.0);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Replaces each pixel by the median of a square of 2 * Radius + 1 pixels (cv::medianBlur): removes single
/// wrong pixels and keeps edges. Pixels beyond the edge of the image repeat the last one.
///
/// Input: 8-bit; up to Radius 2 also CV_16U, CV_16S and CV_32F.
class VORN_API MedianFilter : public ImageFilterBase<MedianFilter> {
public:
  static constexpr char const* className = "vorn::mv::MedianFilter";
  MedianFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// Half the side of the square, px; 0 copies the image.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

protected:
  using ImageFilterBase::ImageFilterBase;
};

} // namespace vorn::mv
