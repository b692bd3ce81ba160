// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <opencv2/core/matx.hpp>

#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "registration/seen_cloud.hpp"
#include "registration/source_samples.hpp"
#include "registration/surface_matcher.hpp"
#include "registration/view_agreement.hpp"

namespace vorn::mv {

/// A cloud as a start is searched with it.
struct SearchedCloud {
  PointCloud& cloud;
  SurfaceMatcher const& surface;
  SeenCloud const& seen;
};

/// A motion that may be the right one.
struct StartCandidate {
  cv::Matx44d motion;
  double score = std::numeric_limits<double>::lowest();
  double overlap = 0.0; ///< the share of the source's samples that lie on the target
};

/// Brings motions that are roughly right to where the views themselves agree best.
class StartRefinement {
public:
  /// @param reach the distance that roughly right motions may be off
  StartRefinement(SearchedCloud const& source, SearchedCloud const& target, double reach);

  /// The motion that registration on some samples leads to.
  struct Laid {
    cv::Matx44d motion;
    double sigma = std::numeric_limits<double>::infinity();
    double overlap = 0.0;
  };
  Laid laid(cv::Matx44d const& targetFromSource) const;

  /// Samples of either view that motions are judged by.
  struct Samples {
    SourceSamples source;
    SourceSamples target;
  };
  Samples const& few() const { return few_; }
  Samples const& all() const { return all_; }

  /// What the views say of a motion, when points that differ by less than the tolerance lie on each other.
  /// @param off the distance by which the motion may be off, 0 .. `reach`: then some points are in the way
  StartCandidate judged(cv::Matx44d const& targetFromSource, Samples const& samples, double tolerance,
                        double off) const;

  /// Slides the source along what the shapes hold least by about a length, as long as the views agree better:
  /// a face may slide on a face, but its borders and holes are seen.
  /// @return as judged where it may be off by that length
  StartCandidate climbed(cv::Matx44d const& targetFromSource, Samples const& samples, double tolerance,
                         double length) const;

private:
  struct Figures {
    AgreementFigures agreement; ///< points that lie on each other count the more, the nearer they do
    double overlap;             ///< the share of the points that lie on the other view
  };
  cv::Matx44d laidIn(cv::Matx44d const& targetFromSource, SourceSamples const& samples, int steps,
                     double reach, Laid* laid) const;
  Figures figuresOf(SourceSamples const& samples, SearchedCloud const& other, cv::Matx44d const& otherFromOwn,
                    double tolerance) const;
  bool climb(StartCandidate& best, Samples const& samples, double tolerance, double length) const;

  SearchedCloud source_;
  SearchedCloud target_;
  double reach_;
  Samples few_;
  Samples all_;
};

} // namespace vorn::mv
