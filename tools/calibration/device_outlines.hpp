// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/matx.hpp>

#include <vorn/mv/calib/camera_model.hpp>

#include "tools/report/page.hpp"

/// Cameras and projectors in the view of a page.
namespace vorn::tools {

/// The pyramid of what a calibrated device sees up to a depth, its name at the device. Distortion is left
/// out.
/// @param world_from_device where it stands
/// @param depth             along its axis, mm
PageOutline frustumOf(mv::CameraModel const& device, cv::Matx44d const& world_from_device, double depth,
                      std::string const& name, cv::Vec3b const& color);

/// What a calibrated device sees, as a place to look from.
/// @param name not empty; written with a capital
PageView viewOf(mv::CameraModel const& device, cv::Matx44d const& world_from_device, std::string const& name);

} // namespace vorn::tools
