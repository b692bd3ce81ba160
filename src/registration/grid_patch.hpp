// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>

namespace vorn::mv {

/// How far a place lies along two ways, in those ways, least squares; nothing where they are (nearly) one.
std::optional<cv::Vec2d> cellsBeside(cv::Vec3d const& offset, cv::Vec3d const& a, cv::Vec3d const& b);

/// The surface around a cell of a grid, to the second order in rows and columns. Where cells are missing on
/// one side, at rims and holes, it is what those of the other side lead to.
class GridPatch {
public:
  /// @param usable which cells have a point; that of the patch has one
  /// @param isCoarse the cells are as far apart as the surface bends: slopes are of the fourth order
  GridPatch(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& usable, cv::Point const& cell,
            bool isCoarse);

  cv::Vec3d middle() const { return middle_; }
  /// The columns and rows between the middle and the foot of a point; nothing where the patch has no area.
  std::optional<cv::Vec2d> cellsTo(cv::Vec3d const& point) const;
  cv::Vec3d at(cv::Vec2d const& cells) const;
  /// Whether all eight cells around have points.
  bool isWhole() const { return quadrants_ == 4; }
  /// Whether a place lies more than half a cell beyond the last cell on one side.
  bool isBeyondRim(cv::Vec2d const& cells) const;

private:
  /// Along a row or a column, by the cell and by its square.
  struct Parabola {
    cv::Vec3d slope;
    cv::Vec3d bend;
    bool hasNext = false;
    bool hasLast = false;
  };

  bool has(cv::Point const& way) const;
  cv::Vec3d offsetAt(cv::Point const& way) const;
  Parabola along(cv::Point const& way, bool isCoarse) const;
  cv::Vec3d twist();

  cv::Mat_<cv::Vec3f> const& points_;
  cv::Mat_<uchar> const& usable_;
  cv::Point cell_;
  cv::Vec3d middle_;
  Parabola u_;
  Parabola v_;
  int quadrants_ = 0; ///< whose cells are all there
  cv::Vec3d twist_;
};

} // namespace vorn::mv
