// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/mv/imaging/image_filter.hpp>

namespace vorn::mv {

/// Marks edges, one pixel wide, with 255 on 0 (cv::Canny with Sobel aperture 3). Working memory: 9 bytes a
/// pixel.
///
/// Input: 8-bit. Properties, in units of the gradient's magnitude |dx| + |dy|:
/// - "Threshold1" int 50 [0, 255] and
/// - "Threshold2" int 100 [0, 255]: the smaller one links edges, the greater one starts them
class VORN_API CannyFilter : public ImageFilterBase<CannyFilter> {
public:
  static constexpr char const* className = "vorn::mv::CannyFilter";
  CannyFilter();
  cv::Mat apply(cv::Mat const& input) const override;

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Computes the sum of the second derivatives in x and y (cv::Laplacian).
///
/// Properties:
/// - "Radius" int 1 [0, 32]: the aperture itself, unlike other filters' Radius, so an odd number: 1 is the
///   kernel (0, 1, 0; 1, -4, 1; 0, 1, 0), from 3 on second derivatives of Sobel kernels of that size; OpenCV
///   refuses even values
/// - "Depth" ImageDepth "UInt8": of the output; unsigned ones clip what is negative
class VORN_API LaplacianFilter : public ImageFilterBase<LaplacianFilter> {
public:
  static constexpr char const* className = "vorn::mv::LaplacianFilter";
  LaplacianFilter();
  cv::Mat apply(cv::Mat const& input) const override;

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Computes a smoothed derivative of the image (cv::Sobel).
///
/// Properties:
/// - "Radius" int 1 [0, 32]: the kernel has 2 * Radius + 1 pixels a side; OpenCV refuses more than 31
/// - "Depth" ImageDepth "UInt8": of the output; unsigned ones clip what is negative
/// - "Dx" int 1 [-5, 5] and
/// - "Dy" int 1 [-5, 5]: orders of the derivative in x and y; OpenCV refuses negative ones, both 0, and
///   those that the kernel is too small for
class VORN_API SobelFilter : public ImageFilterBase<SobelFilter> {
public:
  static constexpr char const* className = "vorn::mv::SobelFilter";
  SobelFilter();
  cv::Mat apply(cv::Mat const& input) const override;

protected:
  using ImageFilterBase::ImageFilterBase;
};

} // namespace vorn::mv
