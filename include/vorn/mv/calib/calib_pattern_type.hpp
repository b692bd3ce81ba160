// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/enum.hpp>
#include <vorn/core/export.hpp>

namespace vorn::mv {

/// What a calibration target looks like: bright dots on a darker ground, or dark dots on a brighter one.
class VORN_API CalibPatternType : public EnumBase<CalibPatternType> {
public:
  /// Brighter dots, or darker ones.
  enum Item { CircleGridWhiteOnGray, CircleGridGrayOnWhite };
  static constexpr char const* className = "vorn::mv::CalibPatternType";
  static constexpr char const* itemList = "CircleGridWhiteOnGray, CircleGridGrayOnWhite";
  /// Holds `item`.
  CalibPatternType(Item item = CircleGridWhiteOnGray) : EnumBase(item) {}
};

} // namespace vorn::mv
