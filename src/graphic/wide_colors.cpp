// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/wide_colors.hpp"

#include "core/large_array.hpp"
#include "graphic/file_colors.hpp"

namespace vorn::graphic {

std::vector<cv::Vec4b> WideColors::toBytes(std::vector<cv::Vec4f> const& colors,
                                           std::string& assumption) const {
  ColorScale scale;
  std::size_t ofBytes = 0;
  std::size_t above = 0;
  for (cv::Vec4f const& color : colors) {
    for (int channel = 0; channel < 4; ++channel) {
      float const value = color[channel];
      if (isOf(channel, PlyType::UInt16)) {
        ofBytes += value > 0.0F && value <= 255.0F ? 1 : 0;
        above += value > 255.0F ? 1 : 0;
      } else if (isFloat(channel)) {
        scale.add(static_cast<double>(value));
      }
    }
  }
  bool const areShorts = above >= ofBytes; // nothing but black is, too
  cv::Vec4f full;
  for (int channel = 0; channel < 4; ++channel) {
    full[channel] = isOf(channel, PlyType::UInt16) ? (areShorts ? 65535.0F : 255.0F)
                    : isFloat(channel)             ? (scale.isUnit(true) ? 1.0F : 255.0F)
                                                   : 255.0F;
  }
  assumption = scale.assumption(true);
  if (!areShorts) {
    assumption = "colours of type ushort are taken as 0..255";
  }
  std::vector<cv::Vec4b> bytes;
  reserveLarge(bytes, colors.size());
  for (cv::Vec4f const& color : colors) {
    cv::Vec4b byte(0, 0, 0, 255);
    for (int channel = 0; channel < 4; ++channel) {
      if (types_[static_cast<std::size_t>(channel)]) {
        byte[channel] = colorByte(color[channel] / full[channel]);
      }
    }
    bytes.push_back(byte);
  }
  return bytes;
}

} // namespace vorn::graphic
