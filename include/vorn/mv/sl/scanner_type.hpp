// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/enum.hpp>
#include <vorn/core/export.hpp>

namespace vorn::mv::scanner {

/// The projector axis that a scan codes: Horizontal codes columns, with the projector beside the camera;
/// Vertical codes rows, with the projector above or below it.
class VORN_API ScannerType : public EnumBase<ScannerType> {
public:
  /// Columns, or rows.
  enum Item { Horizontal, Vertical };
  static constexpr char const* className = "vorn::mv::scanner::ScannerType";
  static constexpr char const* itemList = "Horizontal, Vertical";
  /// Holds `item`.
  ScannerType(Item item = Horizontal) : EnumBase(item) {}
};

} // namespace vorn::mv::scanner
