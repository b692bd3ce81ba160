// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <sstream>

#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "core/error.hpp"

namespace vorn::mv {

/// Refuses a view whose points stand in the frame of the world: where its sensor was, nobody knows then.
/// @param number of the view, for the message
inline void requireSensorFrame(PointCloud const& view, std::size_t number, char const* function) {
  cv::Vec3d const& offset = view.offset();
  if (offset != cv::Vec3d()) {
    std::ostringstream text;
    text << "View " << number << " has coordinates about (" << offset[0] << ", " << offset[1] << ", "
         << offset[2]
         << "), far from the sensor that saw it: views are wanted in the frames of their sensors, or "
         << "near them, with an offset of zero";
    throw error(text.str(), function);
  }
}

} // namespace vorn::mv
