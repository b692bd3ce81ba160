// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include "calib/target/grey_image.hpp"
#include "calib/target/search_report.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// How a dot's centre is measured once it is known which dot it is.
enum class CentreMethod {
  /// Fit of a blurred disc to the grey levels across the dot's edge, corrected to the image of the dot's
  /// centre.
  Edge,
  /// Peak of the correlation of the rectified dot with a drawn one, by a quadratic fit.
  TemplatePeak
};

/// What a search for a circle-grid target goes by. Lengths in pixels of the image, areas in pixels².
struct TargetSettings {
  /// Allowed indices, both ends included.
  cv::Point minIndex = {-10, -7};
  cv::Point maxIndex = {10, 7};
  /// Indices around the origin whose dots must agree on one homography.
  cv::Point innerMinIndex = {-2, -2};
  cv::Point innerMaxIndex = {2, 2};
  int minKeyPointCount = 30;
  double minDotArea = 50;
  double maxDotArea = 1000;
  int blurRadius = 7;
  int morphRadius = 1;
  /// Least ratio of a dot's short axis to its long one.
  double minDotRatio = 0.3;
  /// Bounds of a dot's area relative to what the ordinary dots around it suggest.
  double minAreaMultiplier = 0.6;
  double maxAreaMultiplier = 6;
  CentreMethod centreMethod = CentreMethod::Edge;
  /// A grid without markers of this many dots ends the search for a larger one; 0 when its size is not known.
  int expectedDots = 0;
};

/// A dot of the target: where on the grid it stands and where its centre appears in the image.
struct TargetDot {
  cv::Point index;
  cv::Point2d centre;
  /// Of a circle of the same area as the dot's image, pixels; 0 where it was not measured.
  double radius = 0;
};

/// The dots of a target found in an image, by rows of the grid; none when there is no target.
struct TargetView {
  std::vector<TargetDot> dots;
  /// True when the marker dots fixed the origin and the directions of the indices.
  bool isOriginMarked = false;
  /// Of the ordinary dots, pitches.
  double dotRadius = 0;
};

/// Finds the dots of a circle-grid target with bright dots on a darker ground.
///
/// @param image  any step; must not be empty. Dots are searched in its bytes and measured in its full depth,
///               by their edges; TemplatePeak takes bytes alone
/// @param report (out) how the search went; may be null
/// @throws Cancelled when the observer stops it
TargetView findTarget(GreyImage const& image, TargetSettings const& settings, SearchReport* report = nullptr,
                      Progress const& progress = {});

} // namespace vorn::mv
