// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

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

/// How many colour components a file of the object needs: none, or 3, or 4 when some colour is not opaque.
inline int colorChannelsOf(GraphicObject const& object) {
  bool const isOpaque = std::all_of(object.colors().begin(), object.colors().end(),
                                    [](cv::Vec4b const& color) { return color[3] == 255; });
  return !object.hasColors() ? 0 : isOpaque ? 3 : 4;
}

} // namespace vorn::graphic
