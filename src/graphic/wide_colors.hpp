// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>

#include "graphic/ply_header.hpp"

namespace vorn::graphic {

/// Colours of types whose scale shows only in all of a file's.
class WideColors {
public:
  /// @param channel red, green, blue or alpha
  void setType(std::size_t channel, PlyType type) { types_[channel] = type; }

  /// The colours as bytes; those without alpha are opaque.
  /// @param assumption what was assumed of them, in words; empty where they are as usual
  std::vector<cv::Vec4b> toBytes(std::vector<cv::Vec4f> const& colors, std::string& assumption) const;

private:
  bool isOf(int channel, PlyType type) const { return types_[static_cast<std::size_t>(channel)] == type; }
  bool isFloat(int channel) const {
    return isOf(channel, PlyType::Float32) || isOf(channel, PlyType::Float64);
  }

  std::array<std::optional<PlyType>, 4> types_;
};

} // namespace vorn::graphic
