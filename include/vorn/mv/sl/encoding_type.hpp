// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/enum.hpp>
#include <vorn/core/export.hpp>

namespace vorn::mv::scanner {

/// The kind of stripe code, whose planes are stored relative to a reference image, and the period of the
/// fringes. Only the first item is implemented; the others are reserved names.
class VORN_API EncodingType : public EnumBase<EncodingType> {
public:
  /// The reserved names included.
  enum Item {
    BinaryXor0_PhaseShift4x4px,
    BinaryXor0_PhaseShift4x8px,
    GrayXor0_PhaseShift4x4px,
    GrayXor0_PhaseShift4x8px
  };
  static constexpr char const* className = "vorn::mv::scanner::EncodingType";
  static constexpr char const* itemList = "BinaryXor0_PhaseShift4x4px, BinaryXor0_PhaseShift4x8px, "
                                          "GrayXor0_PhaseShift4x4px, GrayXor0_PhaseShift4x8px";
  /// Holds `item`.
  EncodingType(Item item = BinaryXor0_PhaseShift4x4px) : EnumBase(item) {}
};

} // namespace vorn::mv::scanner
