// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/wide_colors.hpp"

#include <array>
#include <cstddef>

#include "core/large_array.hpp"
#include "graphic/file_colors.hpp"

namespace vorn::graphic {

namespace {

/// Components of 16 bits, which programs write in 0..65535 or in 0..255.
class Shorts {
public:
  void add(float component) {
    ofBytes_ += component > 0.0F && component <= 255.0F ? 1 : 0;
    above_ += component > 255.0F ? 1 : 0;
  }

  /// Whether they are of 0..65535: dark colours may be below 255 for the most part.
  bool areWide() const {
    constexpr std::size_t mostRatio = 10;
    return mostRatio * above_ >= ofBytes_; // nothing but black is, too
  }

private:
  std::size_t ofBytes_ = 0;
  std::size_t above_ = 0;
};

} // namespace

std::vector<cv::Vec4b> WideColors::toBytes(std::vector<cv::Vec4f> const& colors,
                                           std::string& assumption) const {
  ColorScales scales;
  std::array<Shorts, 2> shorts; // of colours, and of alpha
  auto const shortsOf = [&](int channel) -> Shorts& { return shorts[channel == 3 ? 1 : 0]; };
  for (cv::Vec4f const& color : colors) {
    for (int channel = 0; channel < 4; ++channel) {
      if (isOf(channel, PlyType::UInt16)) {
        shortsOf(channel).add(color[channel]);
      } else if (isFloat(channel)) {
        scales.add(channel, static_cast<double>(color[channel]));
      }
    }
  }
  cv::Vec4f full;
  for (int channel = 0; channel < 4; ++channel) {
    full[channel] = isOf(channel, PlyType::UInt16) ? (shortsOf(channel).areWide() ? 65535.0F : 255.0F)
                    : isFloat(channel)             ? (scales.isUnit(channel, true) ? 1.0F : 255.0F)
                                                   : 255.0F;
  }
  assumption = scales.assumption(true);
  if (!shorts[0].areWide()) {
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
