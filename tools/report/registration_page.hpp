// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/measure/amat.hpp>
#include <vorn/mv/registration/registration.hpp>

#include "tools/report/figure_options.hpp"
#include "tools/report/page.hpp"

namespace vorn::tools {

/// A cloud in the target's frame with its distances to the target's surface.
struct MovedCloud {
  std::string name;
  std::vector<cv::Vec3f> points;
  std::vector<float> deviations; ///< one a point; NaN where it has no place on the target
};

/// The present points of a cloud, moved.
/// @param deviations as large as the cloud
MovedCloud movedCloud(std::string const& name, mv::PointCloud const& cloud,
                      cv::Matx44d const& target_from_source, cv::Mat_<float> const& deviations);

/// The moved cloud, seen along +z and coloured by its deviations; points without one are grey.
mv::AMat drawDeviations(MovedCloud const& moved, FigureOptions const& look);

/// Shows both clouds on a page, with what a registration found.
/// @param look the range of the deviations' colours
void describeRegistration(Page& page, mv::Registration const& found, MovedCloud const& moved,
                          mv::PointCloud const& target, std::string const& targetName,
                          FigureOptions const& look);

} // namespace vorn::tools
