// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "calib/target/dot_candidate.hpp"
#include "calib/target/dot_centre.hpp"
#include "calib/target/dot_grid.hpp"

namespace vorn::mv {

/// Which candidates look like a dot once their outline is made a circle: correlation with a drawn dot. Judged
/// are those that are part of a cross; the others pass.
/// @throws Cancelled when the observer stops it
std::vector<char> resembleDots(ReducedImage const& level, std::vector<DotCandidate> const& candidates,
                               std::vector<std::optional<GridCross>> const& crosses,
                               Progress const& progress);

/// A dot made round and evenly lit.
struct RectifiedDot {
  /// Where in the image a position lies that is given in the dot's own radii from its centre.
  std::function<cv::Point2d(cv::Point2d const&)> position;
  DotLevels levels;
};

/// Centres of dots by the peak of the correlation with a drawn dot, refined with `math::quadraticFit`.
///
/// @param radius mean radius of the dots in the image, pixels
/// @param reach  how far the bare ground around the dots reaches, in radii
/// @return positions in radii from where each dot has its centre; a dot whose peak is not near it keeps (0,
/// 0)
std::vector<cv::Point2d> correlationPeaks(cv::Mat const& image, std::vector<RectifiedDot> const& dots,
                                          double radius, double reach);

} // namespace vorn::mv
