// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `registerClouds` works. Lengths are in the unit of the clouds; 0 leaves a choice to the clouds' own
/// spacing and noise, so that the answer is the same in any unit.
struct RegistrationSettings {
  /// Where the source is thought to lie in the target's frame: a rigid motion, its rotation orthonormal to
  /// 1e-6.
  cv::Matx44d targetFromSource = cv::Matx44d::eye();
  /// Points farther apart than this are never the same place. 0: three times the median distance of all
  /// pairs.
  double maxDistance = 0.0;
  /// Normals of one place differ by at most this angle, in degrees, above 0 .. 90.
  double maxNormalAngle = 45.0;
  /// Steps after which the work ends in any case, 1 .. 1000.
  int maxIterations = 60;
  /// Points of the source to use, at least 100; 0: all. They are spread evenly over it.
  int maxSamples = 0;
  /// The share of the source's points that must find their place on the target, 0 .. 1; with less the result
  /// is `RegistrationStop::NoOverlap`.
  double minOverlap = 0.05;
};

/// Why a registration ended.
enum class RegistrationStop {
  Converged,      ///< the last step was below the uncertainty of the result
  IterationLimit, ///< `RegistrationSettings::maxIterations` came first
  NoOverlap       ///< too few points have a place on the other cloud: there is no result
};

/// A motion that the shape of what both clouds saw does not hold: the source may slide along it and fits as
/// well as before.
struct FreeMotion {
  /// How the source may move.
  enum class Kind {
    Translation, ///< along `axis`
    Rotation     ///< about the line through `point` along `axis`
  };

  Kind kind = Kind::Translation; ///< how the source may move
  cv::Vec3d axis;                ///< of length 1, in the target's frame
  cv::Vec3d point;               ///< in the target's frame
};

/// What speaks against a result that the steps led to: they end in a wrong place too, where none near it fits
/// better.
enum class RegistrationDoubt {
  /// The residuals scatter far more than the clouds by themselves: `Registration::sigma` is above four times
  /// `Registration::noise`.
  Rough,
  /// One cloud has points where the other's sensor saw through to something behind:
  /// `Registration::conflict` is above 0.02. Either the result is wrong, or something moved between the
  /// views.
  InTheWay
};

/// Where one cloud lies in the frame of another, and how well that is known.
struct VORN_API Registration {
  /// Moves the source's `points()` to the target's; what was begun with when there is no overlap.
  cv::Matx44d targetFromSource = cv::Matx44d::eye();
  RegistrationStop stop = RegistrationStop::NoOverlap; ///< why it ended
  int iterations = 0;                                  ///< steps taken, those on coarser samples included
  /// RMS distance of the points used to the planes of their places on the target, weighted as used.
  double rms = 0.0;
  /// Robust standard deviation of those distances.
  double sigma = 0.0;
  /// The share of the source's points that have a place on the target.
  double overlap = 0.0;
  /// Points used in the last step, those of blocks counted each.
  std::size_t matches = 0;
  /// Covariance of the source's last small motion in the target's frame: rotation about `pivot` in rad (x, y,
  /// z), translation. It follows from how the residuals of patches of the surface scatter, so noise that
  /// neighbours share is in it; of fewer than 24 such patches, which have 8 x 8 points or more, as far as a
  /// 24th of the points shares it. Along free motions it is that of a shift by the size of the overlap.
  cv::Matx66d covariance = cv::Matx66d::zeros();
  /// The middle of the overlap, in the target's frame.
  cv::Vec3d pivot;
  /// What the shapes do not hold; the result does not move along it. Empty when all six degrees are held.
  std::vector<FreeMotion> freeMotions;
  /// How finely single precision resolves coordinates where the clouds are; above `sigma` it, not the noise,
  /// limits the result.
  double resolution = 0.0;
  /// How much both clouds scatter by themselves about surfaces that are smooth over some eight neighbours, of
  /// both together, along normals; where the parts are curved as much as that, more. The residuals of a good
  /// result scatter no more.
  double noise = 0.0;
  /// The share of the points of one cloud within the other's view that lie before the surface seen there, of
  /// the cloud of which it is larger, 0 .. 1. Only told of clouds that were seen from the origin of their
  /// frame: with no points behind others or behind the origin; else 0.
  double conflict = 0.0;
  /// What speaks against the result.
  std::vector<RegistrationDoubt> doubts;

  /// Whether anything speaks against the result.
  bool isDoubtful() const { return !doubts.empty(); }
  /// Whether `targetFromSource` is more than the guess.
  bool isFound() const { return stop != RegistrationStop::NoOverlap; }
  /// The surface that the free motions are those of: "" (none), "plane", "sphere", "cylinder", "extrusion",
  /// "revolution", "point" for anything else.
  std::string freeShape() const;
};

/// Finds the motion that lays one cloud onto another from a guess that is near enough for corresponding
/// points to be near each other.
///
/// Minimises the distances of the source's points to the target along the mean of both normals (S.
/// Rusinkiewicz, "A Symmetric Objective Function for ICP", SIGGRAPH 2019), coarse samples first. A point
/// finds its place on an organized target by walking its grid along the tangents, on others by the octree;
/// points that come to lie beside the surface have none, and a robust weight leaves out what lies off it.
/// Clouds without normals get some, as by `PointCloud::calcNormals`. Pending transforms are ignored.
///
/// Of clouds of 48000 points and more, blocks of some four by four neighbours are registered in their stead,
/// unless `maxSamples` is given: they hold what the points know at a sixteenth of the work. Blocks near steps
/// and edges are left out, which would draw the result; where these are nearly everywhere, all points are
/// used. The result's figures are those of single points.
///
/// The same input gives the same bits, on any number of threads and in units that are powers of two apart.
/// The sums are taken about the middle of the target, so far from the origin only the floats' own rounding
/// remains. Working memory: about 150 bytes a point of the source and 20 of the target, without normals 15
/// more; for blocks a sixteenth, and for lists the 25 of their octree.
/// @param observer hears of the iterations
/// @throws Exception when a setting is outside its range or the start no rigid motion, when a cloud has fewer
///         than 50 points with a normal, all on one line for instance, and when one is 30 times as large as
///         the other
/// @throws Cancelled when stopped by the observer
VORN_API Registration registerClouds(PointCloud const& source, PointCloud const& target,
                                     RegistrationSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
