// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::tools {

/// A shaded relief of an organized cloud, coloured by depth with a scale at its right edge, or by a texture.
/// @param xyz     H x W points in mm; those with a NaN or infinite coordinate, or with z <= 0, count as
/// absent
/// @param texture H x W colours (blue, green, red) to take in place of those of the depth, or empty
/// @return CV_8UC3; H rows, and W columns plus the scale, if any
cv::Mat drawRelief(cv::Mat_<cv::Vec3f> const& xyz, cv::Mat_<cv::Vec3b> const& texture = {});

/// The same for points without a grid: they are seen along +z by a camera that shows all of them.
/// @param colors one colour (blue, green, red) a point, or empty
cv::Mat drawCloud(std::vector<cv::Vec3f> const& points, std::vector<cv::Vec3b> const& colors = {});

/// A decoded map as a picture: the hue runs through once in the whole range, the brightness once in each
/// `period`; undecoded pixels (negative) are dark grey.
/// @param map H x W projector coordinates in pixels
cv::Mat drawDecodedMap(cv::Mat_<float> const& map, float period);

} // namespace vorn::tools
