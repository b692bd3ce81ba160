// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "calib/target/measured_grid.hpp"
#include "calib/target/target_finder.hpp"

namespace vorn::mv {

/// Half way to the next dot, and a little more, in pitches: the ground there belongs to nobody.
constexpr double groundReach = 0.525;

/// Measures the dots of a grid in the full image and completes the grid.
class GridMeasurement {
public:
  /// @param dotRadius of the ordinary dots, pitches; roughly, it is measured
  GridMeasurement(cv::Mat const& image, TargetSettings const& settings, bool isMarked, double dotRadius);

  cv::Mat const& image() const { return image_; }
  bool isMarked() const { return isMarked_; }
  double dotRadius() const { return ordinaryRadius_; }
  bool isMarker(cv::Point const& index) const {
    return isMarked_ && index.x >= 0 && index.y >= 0 && index.x + index.y <= 1;
  }

  /// First measurement, from rough positions; looks for the dots that these lack too.
  MeasuredGrid start(std::vector<TargetDot> const& rough);

  /// Whether all three markers were measured, the image is brighter around them than around the other dots,
  /// and they are as much larger as markers are.
  bool hasMarkers(MeasuredGrid& grid) const;

  /// Measures once more, with band and outline as the first measurement found them.
  void refine(MeasuredGrid& grid) const;

  /// Moves the dots' centres to where their edges have them.
  void fitEdges(MeasuredGrid& grid) const;

private:
  /// Takes a radius of the ordinary dots, pitches, and the markers' that goes with it.
  void assume(double dotRadius);

  /// Looks for dots where the grid has gaps and beyond its edge, until there are no more.
  void complete(MeasuredGrid& grid) const;

  /// Measures a dot near `start` as large as it is expected to be.
  /// @param lightSlope as `DotShape` has it
  std::optional<MeasuredDot> measure(LocalMap const& local, cv::Point const& index, cv::Point2d const& start,
                                     std::optional<cv::Vec2d> const& lightSlope = std::nullopt) const;

  /// Measures dots from where they are taken to be, through a map of them; those that are whole.
  std::vector<MeasuredDot> measureAll(TargetMap const& map, std::vector<TargetDot> const& dots) const;

  static double usualBlur(std::vector<MeasuredDot> const& dots);

  /// Takes over the dots' sizes and the blur of their edges.
  void learn(std::vector<MeasuredDot> const& dots);

  /// Adds dots up to `reach` steps from those that are there; true when there were any.
  bool addMissing(MeasuredGrid& grid, int reach) const;

  /// The dot at an index that has none yet, if it is like those up to `reach` steps around it.
  std::optional<MeasuredDot> findMissing(MeasuredGrid const& grid, TargetMap const& map,
                                         cv::Point const& index, int reach) const;

  cv::Mat const& image_;
  TargetSettings const& settings_;
  bool isMarked_;
  double ordinaryRadius_ = 0; ///< pitches
  double markerRadius_ = 0;
  double halfWidth_ = 0;
};

} // namespace vorn::mv
