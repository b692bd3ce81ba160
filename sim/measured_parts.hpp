// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

namespace vorn::sim {

/// A body by its distance function: negative inside, never more than the distance from the surface. Bodies
/// measure about 2 across.
struct MeasuredPart {
  std::string name;
  std::function<double(cv::Vec3d const&)> distance;
};

/// Ten parts: milled, turned, bent and cast ones, none with a symmetry.
std::vector<MeasuredPart> measuredParts();

/// The pose of a sensor that looks at the origin from a direction, turned about its line of sight.
cv::Matx44d partFromSensor(cv::Vec3d const& direction, double roll);

/// What the sensor sees: an organized cloud in its frame with noise along its lines of sight, NaN where it
/// sees nothing.
cv::Mat_<cv::Vec3f> scanOf(MeasuredPart const& part, cv::Matx44d const& part_from_sensor, int side,
                           double sigma, std::mt19937& random);

/// The share of one sensor's points that another sees too.
double sharedWith(MeasuredPart const& part, cv::Matx44d const& one, cv::Matx44d const& other);

/// Two organized clouds of a part, each in its sensor's frame, and how they lie.
struct PartViews {
  cv::Mat_<cv::Vec3f> source;
  cv::Mat_<cv::Vec3f> target;
  cv::Matx44d targetFromSource;
};

/// Two views from directions by chance, turned about their lines of sight by chance: as far apart as leaves
/// the source so much in common with the target.
/// @param overlap the share of the source's points that the target's sensor sees too
PartViews viewsOf(MeasuredPart const& part, double overlap, int side, double sigma, std::mt19937& random);

} // namespace vorn::sim
