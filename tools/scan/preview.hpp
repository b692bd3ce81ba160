// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/amat.hpp>

#include "tools/report/figure_options.hpp"

/// Pictures of scans, clouds and decoded maps: with a title, a scale and what their colours stand for.
namespace vorn::tools {

/// A shaded relief of an organized cloud, coloured by depth with a legend, or by a texture. The scale bar
/// holds for surfaces at the usual distance that face the camera.
/// @param xyz     H x W points in mm; those with a NaN or infinite coordinate, or with z <= 0, count as
///                absent
/// @param texture H x W colours (blue, green, red) to take in place of those of the depth, or empty
/// @return an image of H x W
mv::AMat drawRelief(cv::Mat_<cv::Vec3f> const& xyz, cv::Mat_<cv::Vec3b> const& texture = {},
                    std::string const& title = {}, FigureOptions const& look = {});

/// The same for points without a grid: they are seen along +z by a camera that shows all of them.
/// @param colors one colour (blue, green, red) a point, or empty
mv::AMat drawCloud(std::vector<cv::Vec3f> const& points, std::vector<cv::Vec3b> const& colors = {},
                   std::string const& title = {}, FigureOptions const& look = {});

/// A decoded map as a picture: the colour runs through once in the whole range, the brightness once in each
/// `period`; undecoded pixels (negative) have the colour of the ground.
/// @param map H x W projector coordinates in pixels
/// @param axis what the coordinates count, such as "column"
mv::AMat drawDecodedMap(cv::Mat_<float> const& map, float period, std::string const& axis,
                        std::string const& title = {}, FigureOptions const& look = {});

} // namespace vorn::tools
