// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "core/progress.hpp"
#include "registration/source_samples.hpp"
#include "registration/surface_matcher.hpp"

namespace vorn::mv {

/// A sample and its place on the target.
struct SurfacePair {
  unsigned cell = SurfaceMatcher::none; ///< of the target
  bool isValid = false;
  bool isOpposed = false; ///< the normals point to different sides
  double residual = 0.0;  ///< along the mean normal
  double distance = 0.0;  ///< in space
  cv::Vec3d arm;          ///< the sample less the pivot, over the size of the target
  cv::Vec3d sourceNormal; ///< in the target's frame
  cv::Vec3d targetNormal;
};

/// When a pair counts.
struct PairRule {
  double maxDistance = 0.0;
  double leastCosine = 0.0;
  bool areOpposed = false; ///< one cloud's normals point outwards, the other's inwards
};

/// Normal equations of the small motion (rotation times the size of the target, translation) that reduces the
/// residuals, and what they say besides.
///
/// The products of Jacobians take one from the source's normals and one from the target's: the noise of the
/// normals, which would make every step too short and every motion look held, then cancels.
struct PairEquations {
  cv::Matx66d normal = cv::Matx66d::zeros();   ///< sum of w J J'
  cv::Matx66d response = cv::Matx66d::zeros(); ///< the same with d(w e)/de for w
  cv::Matx66d scatter = cv::Matx66d::zeros();  ///< of the gradients of the patches, or of smaller parts
  cv::Vec6d gradient;                          ///< sum of w e J
  double weights = 0.0;
  double squares = 0.0;     ///< sum of w e^2
  double normalNoise = 0.0; ///< sum of w times the mean square difference of the normals' components
  std::size_t count = 0;
  std::size_t patches = 0; ///< with any pair
  std::size_t parts = 0;   ///< whose gradients `scatter` is of

  void add(PairEquations const& other);
};

/// Finds the place of every sample, beginning at that of the last time.
/// @param first true: nothing is known of an earlier time
void findPairs(SourceSamples const& samples, SurfaceMatcher const& target,
               cv::Matx44d const& targetFromSource, PairRule const& rule, std::vector<SurfacePair>& pairs,
               Progress const& progress);

/// Sums the equations of the pairs with a weight that falls to 0 at `cutoff` (J. W. Tukey's biweight); all
/// weigh 1 for a cutoff of 0. Patch by patch, so that the sums do not depend on threads. Where pairs are in
/// few patches, those say little of how gradients scatter: then it is that of smaller parts, of some pairs
/// each.
PairEquations sumEquations(SourceSamples const& samples, std::vector<SurfacePair> const& pairs,
                           double cutoff);

} // namespace vorn::mv
