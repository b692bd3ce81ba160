// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/enum.hpp>
#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The neighbourhood of a pixel that a morphological filter looks at.
class VORN_API MorphShape : public EnumBase<MorphShape> {
public:
  /// The whole square, its middle row and column, or the ellipse in it.
  enum Item { Rect, Cross, Ellipse };
  static constexpr char const* className = "vorn::mv::MorphShape";
  static constexpr char const* itemList = "Rect, Cross, Ellipse";
  /// Holds `item`.
  MorphShape(Item item = Rect) : EnumBase(item) {}

  /// The OpenCV shape: MORPH_RECT, MORPH_CROSS or MORPH_ELLIPSE.
  int cvShape() const;
};

} // namespace vorn::mv
