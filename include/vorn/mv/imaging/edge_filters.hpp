// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/imaging/image_depth.hpp>
#include <vorn/mv/imaging/image_filter.hpp>

namespace vorn::mv {

/// Marks edges, one pixel wide, with 255 on 0 (cv::Canny with Sobel aperture 3). Working memory: 9 bytes a
/// pixel.
///
/// Input: 8-bit. The thresholds count the gradient's magnitude |dx| + |dy|.
class VORN_API CannyFilter : public ImageFilterBase<CannyFilter> {
public:
  static constexpr char const* className = "vorn::mv::CannyFilter";
  CannyFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// One bound of the gradient: the smaller of both links edges, the greater one starts them.
  VORN_PROPERTY(int, threshold1, Threshold1, 50, 0, 255);

  /// The other bound of the gradient.
  VORN_PROPERTY(int, threshold2, Threshold2, 100, 0, 255);

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Computes the sum of the second derivatives in x and y (cv::Laplacian).
class VORN_API LaplacianFilter : public ImageFilterBase<LaplacianFilter> {
public:
  static constexpr char const* className = "vorn::mv::LaplacianFilter";
  LaplacianFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The aperture itself, unlike other filters' Radius, so an odd number: 1 is the kernel (0, 1, 0; 1, -4, 1;
  /// 0, 1, 0), from 3 on second derivatives of Sobel kernels of that size; OpenCV refuses even values.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

  /// Element type of the output; unsigned ones clip what is negative.
  VORN_PROPERTY(ImageDepth, depth, Depth, ImageDepth());

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Computes a smoothed derivative of the image (cv::Sobel).
class VORN_API SobelFilter : public ImageFilterBase<SobelFilter> {
public:
  static constexpr char const* className = "vorn::mv::SobelFilter";
  SobelFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The kernel has 2 * Radius + 1 pixels a side; OpenCV refuses more than 31.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

  /// Element type of the output; unsigned ones clip what is negative.
  VORN_PROPERTY(ImageDepth, depth, Depth, ImageDepth());

  /// Order of the derivative in x; OpenCV refuses negative ones, both 0, and those that the kernel is too
  /// small for.
  VORN_PROPERTY(int, dx, Dx, 1, -5, 5);

  /// Order of the derivative in y, likewise.
  VORN_PROPERTY(int, dy, Dy, 1, -5, 5);

protected:
  using ImageFilterBase::ImageFilterBase;
};

} // namespace vorn::mv
