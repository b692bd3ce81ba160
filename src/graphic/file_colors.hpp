// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// A colour component in 0..1, as files hold it, to the nearest of 0..255. Values outside are clamped; NaN is
/// 0.
template <class Float>
unsigned char colorByte(Float value) {
  if (!(value > 0)) {
    return 0;
  }
  return value >= 1 ? 255 : static_cast<unsigned char>(value * 255 + Float(0.5));
}

/// The scale of a file's colour components, which programs write in 0..1 or in 0..255, from all of them: a
/// few that overshoot do not decide.
class ColorScale {
public:
  /// Takes a component; infinite ones and NaN have no say.
  void add(double component) {
    fractions_ += component > 0.0 && component < 1.0 ? 1 : 0;
    beyond_ += component > mostOfUnit && std::isfinite(component) ? 1 : 0;
    above_ += component > mostOfByte && std::isfinite(component) ? 1 : 0;
  }

  /// Whether they are of 0..1. Where no component tells, `isUsual`.
  bool isUnit(bool isUsual) const {
    bool const hasNone = fractions_ == 0 && beyond_ == 0;
    return hasNone ? isUsual : fractions_ > leastRatio * beyond_;
  }

  /// What was assumed other than what is usual, in words; empty where nothing was.
  std::string assumption(bool isUsual) const {
    bool const unit = isUnit(isUsual);
    std::string text;
    if (unit != isUsual) {
      text = std::string("colours are taken as ") + (unit ? "0..1" : "0..255");
    }
    if (unit && beyond_ > 0) {
      text += (text.empty() ? "colours are taken as 0..1, " : ", ") + std::to_string(beyond_) +
              " components above 2 as 1";
    }
    if (!unit && above_ > 0) {
      text += (text.empty() ? "colours are taken as 0..255, " : ", ") + std::to_string(above_) +
              " components above 255 as 255";
    }
    return text;
  }

private:
  /// What a component of 0..1 may overshoot to; a file of 0..255 with nothing above would be all but black.
  static constexpr double mostOfUnit = 2.0;
  static constexpr double mostOfByte = 255.5; ///< what rounding leaves alone
  /// Of components between 0 and 1 over those beyond.
  static constexpr std::size_t leastRatio = 10;

  std::size_t fractions_ = 0;
  std::size_t beyond_ = 0;
  std::size_t above_ = 0;
};

/// The scales of a file's colours and of their alpha, which may be another one.
class ColorScales {
public:
  void add(int channel, double component) { (channel == alpha ? ofAlpha_ : ofColors_).add(component); }

  /// Whether a channel is of 0..1. An alpha of which no component tells is: of 0..255 it would leave nothing
  /// to see.
  bool isUnit(int channel, bool isUsual) const {
    return channel == alpha ? ofAlpha_.isUnit(true) : ofColors_.isUnit(isUsual);
  }

  /// As that of the colours' scale.
  std::string assumption(bool isUsual) const { return ofColors_.assumption(isUsual); }

private:
  static constexpr int alpha = 3;
  ColorScale ofColors_;
  ColorScale ofAlpha_;
};

/// How many colour components a file of the object needs: none, or 3, or 4 when some colour is not opaque.
inline int colorChannelsOf(GraphicObject const& object) {
  bool const isOpaque = std::all_of(object.colors().begin(), object.colors().end(),
                                    [](cv::Vec4b const& color) { return color[3] == 255; });
  return !object.hasColors() ? 0 : isOpaque ? 3 : 4;
}

} // namespace vorn::graphic
