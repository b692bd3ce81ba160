// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/imaging/image_filter.hpp>
#include <vorn/mv/imaging/morph_shape.hpp>

namespace vorn::mv {

/// Replaces each pixel by the greatest value in its neighbourhood (cv::dilate); pixels beyond the edge of the
/// image do not count.
class VORN_API DilateFilter : public ImageFilterBase<DilateFilter> {
public:
  static constexpr char const* className = "vorn::mv::DilateFilter";
  DilateFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The neighbourhood fits a square of 2 * Radius + 1 pixels.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

  /// Shape of the neighbourhood.
  VORN_PROPERTY(MorphShape, shape, Shape, MorphShape());

protected:
  using ImageFilterBase::ImageFilterBase;
};

/// Replaces each pixel by the least value in its neighbourhood (cv::erode); pixels beyond the edge of the
/// image do not count.
class VORN_API ErodeFilter : public ImageFilterBase<ErodeFilter> {
public:
  static constexpr char const* className = "vorn::mv::ErodeFilter";
  ErodeFilter();
  cv::Mat apply(cv::Mat const& input) const override;

  /// The neighbourhood fits a square of 2 * Radius + 1 pixels.
  VORN_PROPERTY(int, radius, Radius, 1, 0, 32);

  /// Shape of the neighbourhood.
  VORN_PROPERTY(MorphShape, shape, Shape, MorphShape());

protected:
  using ImageFilterBase::ImageFilterBase;
};

} // namespace vorn::mv
