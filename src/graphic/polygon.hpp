// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

namespace vorn::graphic {

/// A polygon's triangles while a file is read: fans first, as the vertices may not be known yet.
class PolygonFans {
public:
  /// Appends the fan about the first corner.
  void add(std::vector<int> const& corners, std::vector<cv::Vec3i>& triangles);

  /// Cuts those fans anew whose polygon is not convex, when all vertices are known: each ear (a corner whose
  /// triangle lies inside, seen along the polygon's mean normal, and holds no other corner; G. Meisters 1975)
  /// is cut off in turn. A polygon keeps its number of triangles and its direction. One that crosses itself,
  /// has no area or more than 5000 corners stays a fan.
  void cutConcave(std::vector<cv::Vec3f> const& vertices, std::vector<cv::Vec3i>& triangles) const;

private:
  struct Fan {
    std::size_t first;
    std::size_t count;
  };
  std::vector<Fan> fans_; ///< of more than one triangle
};

} // namespace vorn::graphic
