// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `fuse` makes one surface of several views. Lengths are in the clouds' unit.
struct FuseSettings {
  /// The distance of neighbours that the result has at most where a view is as dense. 0: that of the densest
  /// view.
  double spacing = 0.0;
  /// Points of different views that are farther apart than this along their normal are not of one surface.
  /// 0: six times the largest median sigma of a view, at least half a spacing.
  double reach = 0.0;
  /// Normals of one place differ by at most this angle, in degrees, above 0 .. 90.
  double maxNormalAngle = 60.0;
  /// Points farther apart are not joined to triangles; a hole as small is none. 0: three spacings,
  /// or distances of points as dense as the densest view on an even grid, which is more for lists spread by
  /// chance.
  double maxEdge = 0.0;
  /// Holes and outer ends of the mesh with at most this length are closed, by triangles over their rim
  /// alone; 0 closes none. `figuresOf` lists what is open.
  double closeHoles = 0.0;
};

/// What `fuse` found about one view.
struct FusedView {
  std::size_t points = 0;   ///< present, finite points with a normal
  std::size_t outliers = 0; ///< of these, left out: more views see through them than see them
  double sigma = 0.0;       ///< the points' median standard deviation along the line of sight
  /// The share of this view's places on the result that at least one other view sees too, 0 .. 1; at 0 the
  /// view stands alone.
  double overlap = 0.0;
  /// The share of the places seen by others where these lie beyond the reach, and within four times it: more
  /// than a few hundredths is a view that is not registered, or is in error.
  double apart = 0.0;
  double offset = 0.0; ///< mean distance of this view from the result along its normals, where others see it
  double rms = 0.0;    ///< RMS of the same
  /// Points that would have stood for a place and were left out: no other view sees them, and at least two
  /// see one surface farther than the reach above or below.
  std::size_t strays = 0;
};

/// One surface of several views.
struct Fusion {
  /// Without a grid, in the common frame (its offset that of the first view), with normals; with colours
  /// where all views have them. Fields: "sigma", the standard deviation along the normal that follows from
  /// those of the views, and "views", how many of them see the point.
  PointCloud cloud;
  /// Over the cloud's points (`SurfaceMesh::cells`); holes are left as they are unless closing is asked.
  SurfaceMesh mesh;
  std::vector<FusedView> views; ///< in the order given
  double spacing = 0.0;         ///< as used
  double reach = 0.0;           ///< as used
};

/// Makes one surface of the views of a part.
///
/// Each view is a cloud in the frame of its camera, with the pending transform that takes it to the frame
/// that all share, as `registerClouds` leaves it. Points that more of the other views see through than see
/// are left out, and those that no other view sees where at least two see one surface above or below. Of the
/// rest so many are taken, those of earlier views first, that no place is emptier than
/// the spacing; each is moved along its normal to the mean of all views that see it, weighted by 1 / variance
/// along the normal. The other views are read between their points (in the triangle of the grid that the
/// normal meets, without a grid in the plane of the nearest points where it passes between them), so nothing
/// is smoothed along the surface. The variance is from the field "sigma" where a cloud has it, the standard
/// deviation along the line of sight, else from how the points scatter about their neighbours' plane; it is
/// at least the rounding of coordinates and 1e-4 of the view's spacing. Points become triangles with those
/// around them by the Delaunay rule, taken in the plane of each; no edge has more than two.
///
/// The result does not depend on the number of threads. Working memory: about 75 bytes a point of all views.
/// @param views at most 255
/// @throws Exception for no view, more than 255, a view with fewer than three distinct points or with an
/// offset
///         (its sensor's place is unknown then), a transform that is no rigid motion, a setting out of its
///         range, a field "sigma" with values that are not above 0, a
///         place that is no number once merged, and when nothing can be joined
/// @throws Cancelled when stopped by the observer
VORN_API Fusion fuse(std::vector<PointCloud> const& views, FuseSettings const& settings = {},
                     Observer* observer = nullptr);

} // namespace vorn::mv
