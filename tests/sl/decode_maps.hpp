// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <functional>

#include <opencv2/core.hpp>

#include "sl/coding/code_check.hpp"
#include "sl/decode/decoding_settings.hpp"
#include "sl/decode/scan_maps.hpp"

/// Small maps for the stages of decoding, each by itself.
namespace vorn::mv::sl {

constexpr double pi = 3.14159265358979324;
constexpr CodeReading nothingCertain = 0;

/// Sets a pixel of the maps by its absolute phase; only known pixels keep the order.
inline void setPixel(ScanMaps& maps, cv::Point p, double absolute, uchar state) {
  int const order = static_cast<int>(std::floor(absolute / (2 * pi)));
  maps.wrapped.inner(p) = static_cast<float>(absolute - order * 2 * pi);
  maps.order.inner(p) = pixel_state::isKnown(state) ? static_cast<short>(order) : noOrder;
  maps.state.inner(p) = state;
  maps.reading.inner(p) = static_cast<int>(nothingCertain);
}

inline void setContrast(ScanMaps& maps, cv::Mat_<uchar> const& contrast) {
  for (int y = 0; y < contrast.rows; ++y) {
    maps.contrast.putRow(y, contrast[y]);
  }
}

inline ScanMaps mapsOf(cv::Size size, std::function<double(int x, int y)> const& absolute,
                       std::function<uchar(int x, int y)> const& state) {
  ScanMaps maps;
  maps.create(size);
  setContrast(maps, cv::Mat_<uchar>(size, 255));
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      setPixel(maps, {x, y}, absolute(x, y), state(x, y));
    }
  }
  return maps;
}

inline ScanDecodingSettings smallProjector() {
  ScanDecodingSettings settings;
  settings.resolution = 40;
  return settings;
}

} // namespace vorn::mv::sl
