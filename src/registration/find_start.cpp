// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/find_start.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include <vorn/mv/registration/registration.hpp>

#include "core/progress.hpp"
#include "registration/common_directions.hpp"
#include "registration/point_motion.hpp"
#include "registration/registration_checks.hpp"
#include "registration/registration_doubts.hpp"
#include "registration/seen_cloud.hpp"
#include "registration/shift_votes.hpp"
#include "registration/similar_points.hpp"
#include "registration/start_refinement.hpp"
#include "registration/surface_matcher.hpp"
#include "registration/surface_registration.hpp"
#include "registration/view_agreement.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "findStart";
/// The edge of the cubes that clouds are thinned by, over the size (RMS distance from the middle) of the
/// smaller one.
constexpr double edgeOverSize = 0.08;
constexpr std::size_t mostPoints = 5000;
/// Shifts that are judged for each rotation, and kept.
constexpr std::size_t judgedShifts = 24;
constexpr std::size_t keptShifts = 4;
/// Points of each view that motions are judged by at first, and how many edges they may lie off.
constexpr std::size_t fewPoints = 150;
constexpr double roughReach = 0.9;
/// Motions that are made more exact on the thinned points, the points this takes, and how many edges they may
/// lie off then.
constexpr std::size_t improvedMotions = 400;
constexpr std::size_t morePoints = 500;
constexpr double fineReach = 0.5;
constexpr double farthest = 1.5; ///< edges that a point may lie off at first
constexpr double sigmas = 3.0;
/// The share of points against a motion that lowers its score to a third.
constexpr double mostAgainst = 0.03;
/// Slides to where the views agree best: their lengths over the distance that points may lie off at first,
/// and how many of the best motions take part. The shorter the slides, the more counts what speaks against a
/// motion: of those that lie side by side along what the shapes do not hold, the first slides leave one.
struct Slides {
  double length;
  std::size_t most;
  bool isFine;
};
constexpr Slides allSlides[] = {
    {1.0, 200, false}, {0.5, 30, false}, {0.25, 16, true}, {0.125, 12, true}, {0.0625, 8, true}};

constexpr double nothing = std::numeric_limits<double>::lowest();

class StartFinder {
public:
  StartFinder(SearchedCloud const& source, SearchedCloud const& target, SightedPoints const& sourcePoints,
              SightedPoints const& targetPoints, double edge, StartSettings const& settings,
              Progress const& progress)
      : source_(source), target_(target), sourcePoints_(sourcePoints), targetPoints_(targetPoints),
        edge_(edge), settings_(settings), progress_(progress), agreement_(sourcePoints, targetPoints, edge),
        refinement_(source, target, farthest * edge) {
    for (OrientedPoint const& point : sourcePoints.points) {
      middle_ += point.place * (1.0 / static_cast<double>(sourcePoints.points.size()));
    }
    for (OrientedPoint const& point : sourcePoints.points) {
      cv::Vec3d const way = point.place - middle_;
      spread_ += way * way.t() * (1.0 / static_cast<double>(sourcePoints.points.size()));
    }
  }

  /// @return also how well the views agree under it
  std::pair<StartSearch, double> run() {
    std::vector<StartCandidate> candidates = ofSimilarPoints();
    progress_.at("similar points", 0.3);
    std::vector<StartCandidate> const turned = ofDirections();
    candidates.insert(candidates.end(), turned.begin(), turned.end());
    candidates = improved(distinct(std::move(candidates), improvedMotions));
    candidates = distinct(std::move(candidates), static_cast<std::size_t>(settings_.candidates));
    refine(candidates);
    StartSearch result;
    if (!candidates.empty()) {
      result.targetFromSource = candidates.front().motion;
      result.overlap = candidates.front().overlap;
      if (candidates.size() > 1 && candidates.front().score > 0.0) {
        result.rivalOverlap = result.overlap * candidates[1].score / candidates.front().score;
      }
      result.isFound = result.overlap >= settings_.minOverlap;
      return {result, candidates.front().score};
    }
    return {result, nothing};
  }

private:
  double roughScore(cv::Matx44d const& motion) const {
    return agreement_.of(motion, fewPoints, roughReach).score(mostAgainst);
  }

  std::vector<StartCandidate> ofSimilarPoints() const {
    std::vector<cv::Matx44d> const motions =
        motionsOfSimilarPoints(sourcePoints_.points, targetPoints_.points, edge_);
    std::vector<StartCandidate> candidates(motions.size());
    parallelRows(static_cast<int>(motions.size()), [&](int first, int end) {
      for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
        candidates[i] = {motions[i], roughScore(motions[i])};
      }
    });
    return candidates;
  }

  std::vector<StartCandidate> ofDirections() const {
    std::vector<cv::Matx33d> const rotations =
        rotationsOfDirections(sourcePoints_.points, targetPoints_.points);
    ShiftVotes const votes(sourcePoints_.points, targetPoints_.points, edge_);
    std::vector<std::vector<StartCandidate>> found(rotations.size());
    parallelRows(static_cast<int>(rotations.size()), 64, progress_.part(0.3, 0.6), "motions",
                 [&](int first, int end) {
                   for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
                     for (cv::Matx44d const& motion : votes.motions(rotations[i], judgedShifts)) {
                       found[i].push_back({motion, roughScore(motion)});
                     }
                     bestFirst(found[i]);
                     found[i].resize(std::min(found[i].size(), keptShifts));
                   }
                 });
    std::vector<StartCandidate> candidates;
    for (std::vector<StartCandidate> const& some : found) {
      candidates.insert(candidates.end(), some.begin(), some.end());
    }
    return candidates;
  }

  static void bestFirst(std::vector<StartCandidate>& candidates) {
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](StartCandidate const& a, StartCandidate const& b) { return a.score > b.score; });
  }

  /// Whether two motions take the source to places less than two edges apart, RMS.
  bool areNear(cv::Matx44d const& a, cv::Matx44d const& b) const {
    cv::Vec3d const way = moved(a, middle_) - moved(b, middle_);
    cv::Matx33d const turn = a.get_minor<3, 3>(0, 0) - b.get_minor<3, 3>(0, 0);
    return way.dot(way) + cv::trace(turn * spread_ * turn.t()) < 4.0 * edge_ * edge_;
  }

  /// The best motions that differ, best first.
  std::vector<StartCandidate> distinct(std::vector<StartCandidate> candidates, std::size_t most) const {
    bestFirst(candidates);
    std::vector<StartCandidate> kept;
    for (StartCandidate const& candidate : candidates) {
      bool const isKnown =
          kept.size() == most || std::any_of(kept.begin(), kept.end(), [&](StartCandidate const& other) {
            return areNear(candidate.motion, other.motion);
          });
      if (!isKnown) {
        kept.push_back(candidate);
      }
    }
    return kept;
  }

  std::vector<StartCandidate> improved(std::vector<StartCandidate> candidates) const {
    parallelRows(static_cast<int>(candidates.size()), 128, progress_.part(0.6, 0.7), "motions",
                 [&](int first, int end) {
                   for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
                     StartCandidate& candidate = candidates[i];
                     candidate.motion = agreement_.improved(candidate.motion, morePoints);
                     candidate.score =
                         agreement_.of(candidate.motion, morePoints, fineReach).score(mostAgainst);
                   }
                 });
    return candidates;
  }

  /// Lays the source onto the target itself from each candidate. Bodies that are nearly round lie on each
  /// other nearly as well when turned: only what lies as near as the noise allows tells which motion is
  /// right.
  void refine(std::vector<StartCandidate>& candidates) const {
    std::vector<StartRefinement::Laid> laid(candidates.size());
    parallelRows(static_cast<int>(candidates.size()), 8, progress_.part(0.7, 0.8), "candidates",
                 [&](int first, int end) {
                   for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
                     laid[i] = refinement_.laid(candidates[i].motion);
                   }
                 });
    double const tolerance = toleranceOf(laid);
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      candidates[i].motion = laid[i].motion;
    }
    climb(candidates, tolerance);
  }

  /// Judges each candidate anew where it may be off by a length.
  void judge(std::vector<StartCandidate>& candidates, StartRefinement::Samples const& samples,
             double tolerance, double length) const {
    parallelRows(static_cast<int>(candidates.size()), [&](int first, int end) {
      for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
        candidates[i] = refinement_.judged(candidates[i].motion, samples, tolerance, length);
      }
    });
  }

  /// Leaves those of the candidates that the views agree best with, where they agree best, best first.
  void climb(std::vector<StartCandidate>& candidates, double tolerance) const {
    double done = 0.8;
    for (Slides const& slides : allSlides) {
      Progress const part = progress_.part(done, done + 0.2 / static_cast<double>(std::size(allSlides)));
      done += 0.2 / static_cast<double>(std::size(allSlides));
      StartRefinement::Samples const& samples = slides.isFine ? refinement_.all() : refinement_.few();
      double const length = slides.length * farthest * edge_;
      judge(candidates, samples, tolerance, length);
      candidates = distinct(std::move(candidates), slides.most);
      parallelRows(static_cast<int>(candidates.size()), 4, part, "candidates", [&](int first, int end) {
        for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
          candidates[i] = refinement_.climbed(candidates[i].motion, samples, tolerance, length);
        }
      });
    }
    judge(candidates, refinement_.all(), tolerance, 0.0);
    std::size_t const most = candidates.size();
    candidates = distinct(std::move(candidates), most);
  }

  /// How far points may lie off each other, of motions that are as exact as registration makes them: by the
  /// least scatter of those that lay enough of the source onto the target.
  double toleranceOf(std::vector<StartRefinement::Laid> const& laid) const {
    double most = 0.0;
    for (StartRefinement::Laid const& each : laid) {
      most = std::max(most, each.overlap);
    }
    double const enough = std::min(settings_.minOverlap, 0.5 * most);
    double sigma = std::numeric_limits<double>::infinity();
    for (StartRefinement::Laid const& each : laid) {
      if (each.overlap >= enough) {
        sigma = std::min(sigma, each.sigma);
      }
    }
    return std::min(sigmas * std::max(sigma, target_.surface.resolution()), farthest * edge_);
  }

  SearchedCloud source_;
  SearchedCloud target_;
  SightedPoints const& sourcePoints_;
  SightedPoints const& targetPoints_;
  double edge_;
  StartSettings const& settings_;
  Progress progress_;
  ViewAgreement agreement_;
  StartRefinement refinement_;
  cv::Vec3d middle_; ///< of the source
  cv::Matx33d spread_ = cv::Matx33d::zeros();
};

/// The search for one choice of the side that the source's normals point to.
std::pair<StartSearch, double> searchOn(SearchedCloud const& source, SearchedCloud const& target,
                                        StartSettings const& settings, Progress const& progress) {
  double edge = edgeOverSize * std::min(source.surface.size(), target.surface.size());
  SightedPoints sourcePoints;
  SightedPoints targetPoints;
  for (;; edge *= 1.25) {
    sourcePoints.points = thinned(source.cloud, source.surface.middle(), edge);
    targetPoints.points = thinned(target.cloud, target.surface.middle(), edge);
    if (std::max(sourcePoints.points.size(), targetPoints.points.size()) <= mostPoints) {
      break;
    }
  }
  if (std::min(sourcePoints.points.size(), targetPoints.points.size()) < fewestPoints) {
    return {StartSearch(), nothing};
  }
  SightMap const sourceSight = source.seen.roughly(edge);
  SightMap const targetSight = target.seen.roughly(edge);
  sourcePoints.sight = source.seen.isSeen() ? &sourceSight : nullptr;
  targetPoints.sight = target.seen.isSeen() ? &targetSight : nullptr;
  sourcePoints.viewpoint = source.seen.viewpoint();
  targetPoints.viewpoint = target.seen.viewpoint();
  return StartFinder(source, target, sourcePoints, targetPoints, edge, settings, progress).run();
}

} // namespace

StartSearch findStart(PointCloud const& source, PointCloud const& target, StartSettings const& settings,
                      Observer* observer) {
  if (!(settings.minOverlap > 0.0 && settings.minOverlap <= 1.0)) {
    refuse("minOverlap", settings.minOverlap, "above 0 .. 1", context);
  }
  if (settings.candidates < 1 || settings.candidates > 200) {
    refuse("candidates", settings.candidates, "1 .. 200", context);
  }
  source.checkSizes();
  target.checkSizes();
  Progress const progress(observer);
  PointCloud sourceCloud = withNormals(source, progress);
  PointCloud targetCloud = withNormals(target, progress);
  SurfaceMatcher const sourceFigures(sourceCloud);
  SurfaceMatcher const targetFigures(targetCloud);
  checkCount(sourceFigures.usableCount(), "The source", context);
  checkCount(targetFigures.usableCount(), "The target", context);
  checkSizes(sourceFigures.size(), targetFigures.size(), context);
  progress.at("normals", 0.2);
  bool const isSideKnown =
      (source.hasNormals() || source.isOrganized()) && (target.hasNormals() || target.isOrganized());
  SeenCloud const sourceSeen(sourceCloud, scatterOf(sourceCloud));
  SeenCloud const targetSeen(targetCloud, scatterOf(targetCloud));
  SearchedCloud const searchedTarget{targetCloud, targetFigures, targetSeen};
  auto [best, score] = searchOn({sourceCloud, sourceFigures, sourceSeen}, searchedTarget, settings,
                                progress.part(0.2, isSideKnown ? 1.0 : 0.6));
  if (!isSideKnown) {
    // Computed without a sensor's grid, normals may point inwards on one of them.
    sourceCloud.normals() = cv::Mat_<cv::Vec3f>(-sourceCloud.normals());
    SurfaceMatcher const turnedFigures(sourceCloud);
    auto [other, otherScore] =
        searchOn({sourceCloud, turnedFigures, sourceSeen}, searchedTarget, settings, progress.part(0.6, 1.0));
    if (otherScore > score) {
      std::swap(best, other);
      std::swap(score, otherScore);
    }
    double const share = score > 0.0 ? std::max(0.0, otherScore) / score : 0.0;
    best.rivalOverlap = std::max(best.rivalOverlap, best.overlap * share);
  }
  return best;
}

} // namespace vorn::mv
