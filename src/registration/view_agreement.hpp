// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "pointcloud/sight_map.hpp"
#include "registration/nearest_grid.hpp"
#include "registration/surface_features.hpp"

namespace vorn::mv {

/// Points of a view, and what its sensor sees in each direction.
struct SightedPoints {
  std::vector<OrientedPoint> points;
  SightMap const* sight = nullptr; ///< null where nothing is known of a sensor
  cv::Vec3d viewpoint;             ///< in the frame of the points
};

/// What speaks for and against a motion that lays one view onto another, as shares of the points of both.
struct AgreementFigures {
  double matched = 0.0; ///< lie on the other view's surface
  double before = 0.0;  ///< lie before what the other sensor sees, which is impossible
  double missed = 0.0;  ///< face the other sensor, which sees nothing there

  /// The matched share, lowered by what speaks against it: to a third when the points against are this share
  /// of all these. Missing points may have many reasons, those that were seen through have few but a wrong
  /// motion. A factor, so that what is wrong with the views themselves lowers all motions alike.
  double score(double mostAgainst) const;
};

/// Judges motions by the points of two views: whether they lie on each other where both see them, and nowhere
/// in the way. A share of points on each other alone says little of parts with flat faces, which lie on each
/// other in many ways.
class ViewAgreement {
public:
  /// @param source, target must outlive this
  /// @param edge the distance of neighbours
  ViewAgreement(SightedPoints const& source, SightedPoints const& target, double edge);

  /// @param most points of each view to look at
  /// @param reach edges off the other surface that a point on it may lie
  AgreementFigures of(cv::Matx44d const& targetFromSource, std::size_t most, double reach) const;

  /// A motion that lays the source onto the target more exactly, where it does so roughly already.
  cv::Matx44d improved(cv::Matx44d const& targetFromSource, std::size_t most) const;

private:
  SightedPoints const& source_;
  SightedPoints const& target_;
  double edge_;
  NearestGrid sourceGrid_;
  NearestGrid targetGrid_;
};

/// Adds what points of a view are to another one's sensor: before what it sees, or missed by it.
void tellBySight(cv::Vec3d const& place, cv::Vec3d const& normal, SightedPoints const& other,
                 AgreementFigures& figures);

} // namespace vorn::mv
