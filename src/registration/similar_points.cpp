// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/similar_points.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "registration/point_motion.hpp"

namespace vorn::mv {

namespace {

/// The reach of a point's description, in edges.
constexpr double featureReach = 6.0;
/// Similar points of the target that each of the source's may be.
constexpr std::size_t similarOnes = 5;
/// The so many-th most similar point tells how rare points like it are.
constexpr std::size_t commonOnes = 40;
/// Every match is held against every other one.
constexpr std::size_t mostMatches = 8000;
/// Pairs of points are at least so many edges apart, so that the turn they give is exact.
constexpr double leastBase = 5.0;
constexpr double distanceTolerance = 1.2; // edges
constexpr double angleTolerance = 0.2;    // of cosines
/// How many correspondences of either order, and partners of each, give motions.
constexpr std::size_t bestMatches = 400;
constexpr std::size_t bestPartners = 16;

struct Match {
  std::size_t source;
  std::size_t target;
  double rarity = 0.0; ///< how unlike the other points of the target are
  std::size_t support = 0;
  double rareSupport = 0.0; ///< by what each says, for points that are alike everywhere agree by chance
};

class SimilarPoints {
public:
  SimilarPoints(std::vector<OrientedPoint> const& source, std::vector<OrientedPoint> const& target,
                double edge)
      : source_(source), target_(target), edge_(edge) {}

  std::vector<Match> matches() const {
    std::vector<SurfaceFeature> const ofSource = featuresOf(source_, featureReach * edge_);
    std::vector<SurfaceFeature> const ofTarget = featuresOf(target_, featureReach * edge_);
    std::size_t const count = std::min(similarOnes, target_.size());
    std::size_t const stride = 1 + source_.size() * count / mostMatches;
    std::size_t const asked = (source_.size() + stride - 1) / stride;
    std::vector<Match> matches(asked * count);
    parallelRows(static_cast<int>(asked), [&](int first, int end) {
      std::vector<std::pair<float, std::size_t>> distances(target_.size());
      for (auto at = static_cast<std::size_t>(first); at < static_cast<std::size_t>(end); ++at) {
        std::size_t const i = at * stride;
        for (std::size_t j = 0; j < target_.size(); ++j) {
          float square = 0.0F;
          for (std::size_t bin = 0; bin < ofSource[i].size(); ++bin) {
            float const difference = ofSource[i][bin] - ofTarget[j][bin];
            square += difference * difference;
          }
          distances[j] = {square, j};
        }
        std::partial_sort(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(count),
                          distances.end());
        auto const common =
            distances.begin() + static_cast<std::ptrdiff_t>(std::min(commonOnes, distances.size() - 1));
        std::nth_element(std::min(common, distances.begin() + static_cast<std::ptrdiff_t>(count)), common,
                         distances.end());
        for (std::size_t k = 0; k < count; ++k) {
          matches[at * count + k] = {i, distances[k].second, static_cast<double>(common->first)};
        }
      }
    });
    support(matches);
    return matches;
  }

  /// @param matches of any order; the first ones lead
  std::vector<cv::Matx44d> motionsOf(std::vector<Match> const& matches) const {
    std::size_t const leading = std::min(bestMatches, matches.size());
    std::vector<std::vector<cv::Matx44d>> found(leading);
    parallelRows(static_cast<int>(leading), [&](int first, int end) {
      for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
        for (std::size_t j = 0; j < matches.size() && found[i].size() < bestPartners; ++j) {
          if (agree(matches[i], matches[j])) {
            found[i].push_back(motionFrom(matches[i], matches[j]));
          }
        }
      }
    });
    std::vector<cv::Matx44d> motions;
    for (std::vector<cv::Matx44d> const& some : found) {
      motions.insert(motions.end(), some.begin(), some.end());
    }
    return motions;
  }

private:
  /// Whether two matches can both be right: the points are as far from each other, and their normals lie
  /// alike.
  bool agree(Match const& a, Match const& b) const {
    cv::Vec3d const inSource = source_[b.source].place - source_[a.source].place;
    cv::Vec3d const inTarget = target_[b.target].place - target_[a.target].place;
    double const lengthInSource = std::sqrt(inSource.dot(inSource));
    double const lengthInTarget = std::sqrt(inTarget.dot(inTarget));
    if (lengthInSource < leastBase * edge_ ||
        std::abs(lengthInSource - lengthInTarget) > distanceTolerance * edge_) {
      return false;
    }
    auto const areAlike = [](double x, double y) { return std::abs(x - y) < angleTolerance; };
    cv::Vec3d const& sourceA = source_[a.source].normal;
    cv::Vec3d const& sourceB = source_[b.source].normal;
    cv::Vec3d const& targetA = target_[a.target].normal;
    cv::Vec3d const& targetB = target_[b.target].normal;
    return areAlike(sourceA.dot(sourceB), targetA.dot(targetB)) &&
           areAlike(sourceA.dot(inSource) / lengthInSource, targetA.dot(inTarget) / lengthInTarget) &&
           areAlike(sourceB.dot(inSource) / lengthInSource, targetB.dot(inTarget) / lengthInTarget);
  }

  /// Counts the matches that each agrees with, all alike and by how rare they are.
  void support(std::vector<Match>& matches) const {
    parallelRows(static_cast<int>(matches.size()), [&](int first, int end) {
      for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
        for (Match const& other : matches) {
          if (agree(matches[i], other)) {
            ++matches[i].support;
            matches[i].rareSupport += other.rarity;
          }
        }
        matches[i].rareSupport *= matches[i].rarity;
      }
    });
  }

  /// The motion that lays two points with their normals onto two others.
  cv::Matx44d motionFrom(Match const& a, Match const& b) const {
    OrientedPoint const& s0 = source_[a.source];
    OrientedPoint const& s1 = source_[b.source];
    OrientedPoint const& t0 = target_[a.target];
    OrientedPoint const& t1 = target_[b.target];
    double const arm = cv::norm(s1.place - s0.place);
    return motionBetween({s0.place, s1.place, s0.place + arm * s0.normal, s1.place + arm * s1.normal},
                         {t0.place, t1.place, t0.place + arm * t0.normal, t1.place + arm * t1.normal});
  }

  std::vector<OrientedPoint> const& source_;
  std::vector<OrientedPoint> const& target_;
  double edge_;
};

} // namespace

std::vector<cv::Matx44d> motionsOfSimilarPoints(std::vector<OrientedPoint> const& source,
                                                std::vector<OrientedPoint> const& target, double edge) {
  SimilarPoints const points(source, target, edge);
  std::vector<Match> matches = points.matches();
  std::stable_sort(matches.begin(), matches.end(),
                   [](Match const& a, Match const& b) { return a.support > b.support; });
  std::vector<cv::Matx44d> motions = points.motionsOf(matches);
  std::stable_sort(matches.begin(), matches.end(),
                   [](Match const& a, Match const& b) { return a.rareSupport > b.rareSupport; });
  std::vector<cv::Matx44d> const rare = points.motionsOf(matches);
  motions.insert(motions.end(), rare.begin(), rare.end());
  return motions;
}

} // namespace vorn::mv
