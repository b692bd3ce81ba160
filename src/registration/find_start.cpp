// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/find_start.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include <vorn/mv/registration/registration.hpp>

#include "core/progress.hpp"
#include "registration/nearest_grid.hpp"
#include "registration/point_motion.hpp"
#include "registration/registration_checks.hpp"
#include "registration/surface_features.hpp"
#include "registration/surface_matcher.hpp"
#include "registration/surface_registration.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "findStart";
/// The edge of the cubes that clouds are thinned by, over the size (RMS distance from the middle) of the
/// smaller one.
constexpr double edgeOverSize = 0.08;
constexpr std::size_t mostPoints = 5000;
/// The reach of a point's description, in edges.
constexpr double featureReach = 6.0;
/// Similar points of the target that each of the source's may be.
constexpr std::size_t similarOnes = 5;
/// Every match is held against every other one.
constexpr std::size_t mostMatches = 8000;
/// Pairs of points are at least so many edges apart, so that the turn they give is exact.
constexpr double leastBase = 5.0;
constexpr double distanceTolerance = 1.2; // edges
constexpr double angleTolerance = 0.2;    // of cosines
/// How many correspondences, and partners of each, give motions.
constexpr std::size_t bestMatches = 250;
constexpr std::size_t bestPartners = 16;
constexpr double leastCosine = 0.8;
/// Samples of the source that candidates are refined and judged by.
constexpr double refiningSamples = 1500.0;
constexpr double farthest = 2.5; ///< edges that a point may lie off at first
constexpr double sigmas = 3.0;

struct Match {
  std::size_t source;
  std::size_t target;
  std::size_t support = 0;
};

struct Candidate {
  cv::Matx44d motion;
  double overlap;
};

class StartFinder {
public:
  StartFinder(std::vector<OrientedPoint> source, std::vector<OrientedPoint> target, double edge,
              SourceSamples samples, SurfaceMatcher const& surface, StartSettings const& settings,
              Progress const& progress)
      : source_(std::move(source)), target_(std::move(target)), edge_(edge), samples_(std::move(samples)),
        surface_(surface), settings_(settings), progress_(progress), grid_(target_, edge) {}

  StartSearch run() {
    std::vector<Match> matches = similarPoints();
    progress_.at("similar points", 0.4);
    support(matches);
    progress_.at("pairs of points", 0.5);
    std::vector<Candidate> candidates = motionsOf(matches);
    progress_.at("motions", 0.7);
    candidates = distinct(std::move(candidates), static_cast<std::size_t>(settings_.candidates));
    refine(candidates);
    StartSearch result;
    if (!candidates.empty()) {
      result.targetFromSource = candidates.front().motion;
      result.overlap = candidates.front().overlap;
      result.rivalOverlap = candidates.size() > 1 ? candidates[1].overlap : 0.0;
      result.isFound = result.overlap >= settings_.minOverlap;
    }
    return result;
  }

private:
  std::vector<Match> similarPoints() const {
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
        for (std::size_t k = 0; k < count; ++k) {
          matches[at * count + k] = {i, distances[k].second};
        }
      }
    });
    return matches;
  }

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

  /// Counts the matches that each agrees with, and puts those with the most first.
  void support(std::vector<Match>& matches) const {
    parallelRows(static_cast<int>(matches.size()), [&](int first, int end) {
      for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
        for (Match const& other : matches) {
          matches[i].support += agree(matches[i], other) ? 1 : 0;
        }
      }
    });
    std::stable_sort(matches.begin(), matches.end(),
                     [](Match const& a, Match const& b) { return a.support > b.support; });
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

  /// The share of every `stride`-th point of the source that lies on the target, `reach` edges away at most.
  double overlapUnder(cv::Matx44d const& motion, std::size_t stride, double reach) const {
    cv::Matx33d const rotation = motion.get_minor<3, 3>(0, 0);
    std::size_t count = 0;
    std::size_t all = 0;
    for (std::size_t i = 0; i < source_.size(); i += stride) {
      cv::Vec3d const place = moved(motion, source_[i].place);
      OrientedPoint const* const near = grid_.near(place);
      ++all;
      if (near != nullptr) {
        cv::Vec3d const way = place - near->place;
        count += way.dot(way) < 4.0 * edge_ * edge_ && std::abs(way.dot(near->normal)) < reach * edge_ &&
                         near->normal.dot(rotation * source_[i].normal) > leastCosine
                     ? 1
                     : 0;
      }
    }
    return static_cast<double>(count) / static_cast<double>(std::max<std::size_t>(all, 1));
  }

  std::vector<Candidate> motionsOf(std::vector<Match> const& matches) const {
    std::size_t const leading = std::min(bestMatches, matches.size());
    std::vector<std::vector<Candidate>> found(leading);
    std::size_t const stride = std::max<std::size_t>(1, source_.size() / 300);
    parallelRows(static_cast<int>(leading), [&](int first, int end) {
      for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
        for (std::size_t j = 0; j < matches.size() && found[i].size() < bestPartners; ++j) {
          if (agree(matches[i], matches[j])) {
            cv::Matx44d const motion = motionFrom(matches[i], matches[j]);
            found[i].push_back({motion, overlapUnder(motion, stride, 0.6)});
          }
        }
      }
    });
    std::vector<Candidate> candidates;
    for (std::vector<Candidate> const& some : found) {
      candidates.insert(candidates.end(), some.begin(), some.end());
    }
    return candidates;
  }

  /// Whether two motions take the source to places less than three edges apart, RMS.
  bool areNear(cv::Matx44d const& a, cv::Matx44d const& b) const {
    std::size_t const stride = std::max<std::size_t>(1, source_.size() / 30);
    double squares = 0.0;
    double count = 0.0;
    for (std::size_t i = 0; i < source_.size(); i += stride) {
      cv::Vec3d const way = moved(a, source_[i].place) - moved(b, source_[i].place);
      squares += way.dot(way);
      count += 1.0;
    }
    return squares < 9.0 * edge_ * edge_ * count;
  }

  /// The best motions that differ, best first.
  std::vector<Candidate> distinct(std::vector<Candidate> candidates, std::size_t most) const {
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](Candidate const& a, Candidate const& b) { return a.overlap > b.overlap; });
    std::vector<Candidate> kept;
    for (Candidate const& candidate : candidates) {
      bool const isKnown = std::any_of(kept.begin(), kept.end(), [&](Candidate const& other) {
        return areNear(candidate.motion, other.motion);
      });
      if (!isKnown && kept.size() < most) {
        kept.push_back(candidate);
      }
    }
    return kept;
  }

  /// Lays the source onto the target itself from each candidate. Bodies that are nearly round lie on each
  /// other nearly as well when turned: only what lies as near as the noise allows tells which motion is
  /// right.
  void refine(std::vector<Candidate>& candidates) const {
    double sigma = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      RegistrationSettings settings;
      settings.targetFromSource = candidates[i].motion;
      settings.maxDistance = farthest * edge_;
      settings.minOverlap = 0.0;
      SurfaceRegistration registration(surface_, settings, Progress());
      if (registration.run(samples_, true)) {
        candidates[i].motion = registration.result().targetFromSource;
        if (registration.result().overlap >= settings_.minOverlap) {
          sigma = std::min(sigma, registration.result().sigma);
        }
      }
      progress_.at("candidates",
                   0.7 + 0.3 * static_cast<double>(i + 1) / static_cast<double>(candidates.size()));
    }
    double const tolerance = std::min(sigmas * std::max(sigma, surface_.resolution()), farthest * edge_);
    for (Candidate& candidate : candidates) {
      candidate.overlap = shareWithin(candidate.motion, tolerance);
    }
    std::size_t const most = candidates.size();
    candidates = distinct(std::move(candidates), most);
  }

  /// The share of the samples that lie on the target within a tolerance.
  double shareWithin(cv::Matx44d const& motion, double tolerance) const {
    PairRule rule;
    rule.maxDistance = farthest * edge_;
    rule.leastCosine = leastCosine;
    std::vector<SurfacePair> pairs;
    findPairs(samples_, surface_, motion, rule, pairs, Progress());
    auto const count = std::count_if(pairs.begin(), pairs.end(), [&](SurfacePair const& pair) {
      return pair.isValid && std::abs(pair.residual) <= tolerance;
    });
    return static_cast<double>(count) / static_cast<double>(std::max<std::size_t>(1, samples_.size()));
  }

  std::vector<OrientedPoint> source_;
  std::vector<OrientedPoint> target_;
  double edge_;
  SourceSamples samples_; ///< of the source itself
  SurfaceMatcher const& surface_;
  StartSettings const& settings_;
  Progress progress_;
  NearestGrid grid_;
};

/// The search for one choice of the side that the source's normals point to.
StartSearch searchOn(PointCloud& source, SurfaceMatcher const& sourceFigures, PointCloud const& target,
                     SurfaceMatcher const& targetFigures, StartSettings const& settings,
                     Progress const& progress) {
  double edge = edgeOverSize * std::min(sourceFigures.size(), targetFigures.size());
  std::vector<OrientedPoint> sourcePoints;
  std::vector<OrientedPoint> targetPoints;
  for (;; edge *= 1.25) {
    sourcePoints = thinned(source, sourceFigures.middle(), edge);
    targetPoints = thinned(target, targetFigures.middle(), edge);
    if (std::max(sourcePoints.size(), targetPoints.size()) <= mostPoints) {
      break;
    }
  }
  if (std::min(sourcePoints.size(), targetPoints.size()) < fewestPoints) {
    return {};
  }
  double const stride = std::sqrt(static_cast<double>(sourceFigures.usableCount()) / refiningSamples);
  return StartFinder(std::move(sourcePoints), std::move(targetPoints), edge,
                     sampleEvenly(source, std::max(1, static_cast<int>(std::lround(stride)))), targetFigures,
                     settings, progress)
      .run();
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
  PointCloud const targetCloud = withNormals(target, progress);
  SurfaceMatcher const sourceFigures(sourceCloud);
  SurfaceMatcher const targetFigures(targetCloud);
  checkCount(sourceFigures.usableCount(), "The source", context);
  checkCount(targetFigures.usableCount(), "The target", context);
  checkSizes(sourceFigures.size(), targetFigures.size(), context);
  progress.at("normals", 0.2);
  bool const isSideKnown =
      (source.hasNormals() || source.isOrganized()) && (target.hasNormals() || target.isOrganized());
  auto const search = [&](Progress const& part) {
    return searchOn(sourceCloud, sourceFigures, targetCloud, targetFigures, settings, part);
  };
  StartSearch best = search(progress.part(0.2, isSideKnown ? 1.0 : 0.6));
  if (!isSideKnown) {
    // Computed without a sensor's grid, normals may point inwards on one of them.
    sourceCloud.normals() = cv::Mat_<cv::Vec3f>(-sourceCloud.normals());
    StartSearch other = search(progress.part(0.6, 1.0));
    if (other.overlap > best.overlap) {
      std::swap(best, other);
    }
    best.rivalOverlap = std::max(best.rivalOverlap, other.overlap);
  }
  return best;
}

} // namespace vorn::mv
