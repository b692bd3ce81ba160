// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "core/progress.hpp"
#include "surface/fusion/point_cells.hpp"
#include "surface/fusion/view_surfaces.hpp"

namespace vorn::mv {

/// The points of all views in one list, view by view, without the outliers.
struct SkinPoints {
  std::vector<cv::Vec3f> places;
  std::vector<std::uint32_t> cells; ///< row by row in their view
  std::vector<std::uint8_t> views;
};

/// Limits of what belongs to one surface.
struct SkinLimits {
  float spacing = 0.0F; ///< of the result
  float reach = 0.0F;   ///< along normals
  float leastCosine = 0.0F;
};

/// Which points of the list, in rising order, stand for the surface: none is nearer to an earlier view's than
/// 0.7 spacings along the surface, and no place is left out.
std::vector<std::uint32_t> thinnedSkins(ViewSurfaces const& all, SkinPoints const& points,
                                        PointCells const& cells, SkinLimits const& limits);

/// A place on the surface.
struct MergedPoint {
  cv::Vec3f place;
  cv::Vec3f normal;
  cv::Vec3b color;
  float sigma = 0.0F;
  /// How many views see it; 0: only its own does, and others see one surface elsewhere.
  std::uint8_t views = 0;
};

/// What is summed over the places that a view sees.
struct ViewSums {
  std::size_t seen = 0;   ///< places
  std::size_t shared = 0; ///< of these seen by others as well
  std::size_t apart = 0;  ///< where this view lies beyond the reach
  double offset = 0.0;
  double squares = 0.0;
};

/// The places of the chosen points on the mean of all views. Each place is the same for any number of
/// threads; so are the sums, which are added in the order of the places.
std::vector<MergedPoint> mergedSkins(ViewSurfaces const& all, SkinPoints const& points,
                                     PointCells const& cells, std::vector<std::uint32_t> const& chosen,
                                     SkinLimits const& limits, std::vector<ViewSums>& sums,
                                     Progress const& progress);

} // namespace vorn::mv
