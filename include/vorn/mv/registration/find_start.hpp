// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `findStart` works.
struct StartSettings {
  /// The share of the source that must lie on the target for a motion to count as found, above 0 .. 1.
  double minOverlap = 0.2;
  /// Motions that are refined and compared, 1 .. 200.
  int candidates = 60;
};

/// A start for `registerClouds` that was found without a guess.
struct StartSearch {
  cv::Matx44d targetFromSource = cv::Matx44d::eye(); ///< moves the source's `points()` near the target's
  bool isFound = false; ///< whether `overlap` reaches `StartSettings::minOverlap`
  double overlap = 0.0; ///< the share of the source that lies on the target then, roughly
  /// The same for the best motion that is another one, lowered by what speaks against it. Close to `overlap`
  /// the shapes do not tell which is right.
  double rivalOverlap = 0.0;
};

/// Finds roughly where a view lies in the frame of another from their shapes alone, wherever they begin.
///
/// Both clouds are thinned to some thousand points, and motions come from two sides. On curved surfaces each
/// point is described by how the normals around it differ (R. B. Rusu, N. Blodow and M. Beetz, "Fast Point
/// Feature Histograms (FPFH) for 3D registration", ICRA 2009), and pairs of similar points with equal
/// distances and angles give motions. Made parts, whose faces are alike everywhere, are turned so that
/// normals of faces and axes of the source become those of the target; points then vote for the shift.
///
/// Of all these the one is taken that lays the most points of either view onto the other, with the fewest
/// where they cannot be: of clouds that were seen from the origin of their frame, before what the other one's
/// sensor saw, or facing it where it saw nothing. The best are refined by registration, and slid along what
/// the shapes hold least: borders and holes are seen where faces slide on each other. Nothing is random.
/// Shapes without features, such as planes and spheres, and those that repeat have no one answer: compare
/// `rivalOverlap`, and look at the registration's free motions and doubts. Clouds without normals get some,
/// as by `PointCloud::calcNormals`. Pending transforms are ignored. Working memory: about 60 bytes a point,
/// and some tens of MB.
/// @param observer hears of the steps
/// @throws Exception when a setting is outside its range, a cloud has fewer than 50 points with a normal, and
/// when
///         one is 30 times as large as the other
/// @throws Cancelled when stopped by the observer
VORN_API StartSearch findStart(PointCloud const& source, PointCloud const& target,
                               StartSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
