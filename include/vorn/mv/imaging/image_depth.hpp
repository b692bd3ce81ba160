// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/enum.hpp>
#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The element type of a filter's output.
class VORN_API ImageDepth : public EnumBase<ImageDepth> {
public:
  /// CV_8U, CV_16S, CV_32S, CV_32F, CV_64F.
  enum Item { UInt8, Int16, Int32, Float, Double };
  static constexpr char const* className = "vorn::mv::ImageDepth";
  static constexpr char const* itemList = "UInt8, Int16, Int32, Float, Double";
  /// Holds `item`.
  ImageDepth(Item item = UInt8) : EnumBase(item) {}

  /// The OpenCV depth: CV_8U, CV_16S, CV_32S, CV_32F or CV_64F.
  int cvDepth() const;
};

} // namespace vorn::mv
