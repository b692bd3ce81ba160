// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/markers.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <sstream>

#include "core/error.hpp"
#include "registration/point_motion.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "matchMarkers";
constexpr double toleranceOverExtent = 0.002;
/// Three markers whose triangle is flatter than this, in tolerances, say nothing of the turn about their
/// line.
constexpr double leastHeight = 5.0;
/// Above so many products of markers a motion that half of them agree with ends the search.
constexpr std::size_t fullSearch = 2500;
constexpr std::size_t enoughMarkers = 6;

using Points = std::vector<cv::Vec3d>;

double distance(cv::Vec3d const& a, cv::Vec3d const& b) {
  return cv::norm(a - b);
}

std::vector<std::size_t> finiteOnes(Points const& points, char const* name) {
  std::vector<std::size_t> finite;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (cv::checkRange(cv::Mat(points[i]))) {
      finite.push_back(i);
    }
  }
  if (finite.size() < 3) {
    throw error("The " + std::string(name) + " has " + std::to_string(finite.size()) +
                    " markers, fewer than three",
                context);
  }
  return finite;
}

/// Two markers, the longer distance first.
struct Pair {
  std::size_t a;
  std::size_t b;
  double length;
};

std::vector<Pair> pairsOf(Points const& points, std::vector<std::size_t> const& indices) {
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    for (std::size_t j = i + 1; j < indices.size(); ++j) {
      pairs.push_back({indices[i], indices[j], distance(points[indices[i]], points[indices[j]])});
    }
  }
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](Pair const& x, Pair const& y) { return x.length > y.length; });
  return pairs;
}

/// A marker by a number that it is found by.
using Sorted = std::vector<std::pair<double, std::size_t>>;

/// Those whose number lies between two others.
std::pair<Sorted::const_iterator, Sorted::const_iterator> between(Sorted const& sorted, double low,
                                                                  double high) {
  auto const first = std::lower_bound(sorted.begin(), sorted.end(), std::pair(low, std::size_t{0}));
  return {first, std::upper_bound(first, sorted.end(), std::pair(high, sorted.size()))};
}

class MarkerSearch {
public:
  MarkerSearch(Points const& source, Points const& target, MarkerSettings const& settings)
      : source_(source), target_(target), sources_(finiteOnes(source, "source")),
        targets_(finiteOnes(target, "target")), sourcePairs_(pairsOf(source, sources_)),
        targetPairs_(pairsOf(target, targets_)),
        tolerance_(settings.tolerance > 0.0 ? settings.tolerance
                                            : toleranceOverExtent * sourcePairs_.front().length) {
    distances_.resize(target_.size());
    for (std::size_t const i : targets_) {
      byX_.emplace_back(target_[i][0], i);
      for (std::size_t const j : targets_) {
        if (j != i) {
          distances_[i].emplace_back(distance(target_[i], target_[j]), j);
        }
      }
      std::sort(distances_[i].begin(), distances_[i].end());
    }
    std::sort(byX_.begin(), byX_.end());
  }

  MarkerMatch run() {
    for (Pair const& pair : sourcePairs_) {
      auto const first =
          std::partition_point(targetPairs_.begin(), targetPairs_.end(), [&](Pair const& other) {
            return other.length > pair.length + 2.0 * tolerance_;
          });
      for (auto other = first; other != targetPairs_.end() && other->length >= pair.length - 2.0 * tolerance_;
           ++other) {
        tryPair(pair, other->a, other->b);
        tryPair(pair, other->b, other->a);
      }
      std::size_t const fewer = std::min(sources_.size(), targets_.size());
      if (sources_.size() * targets_.size() > fullSearch &&
          best_.pairs.size() >= std::max(enoughMarkers, fewer / 2)) {
        break;
      }
    }
    if (best_.pairs.empty()) {
      std::ostringstream text;
      text << "No three markers, not on a line, have the same distances in both views, within "
           << 2.0 * tolerance_;
      throw error(text.str(), context);
    }
    if (isAmbiguous_) {
      throw error("Two motions fit " + std::to_string(best_.pairs.size()) +
                      " markers each: the layout is symmetric, or too little of it is seen in both",
                  context);
    }
    return best_;
  }

private:
  bool areSame(double a, double b) const { return std::abs(a - b) <= 2.0 * tolerance_; }

  /// Whether the best motion so far has these markers as they are, so that it would be found again.
  bool isKnown(std::size_t source, std::size_t target) const {
    return std::find(best_.pairs.begin(), best_.pairs.end(), std::pair(source, target)) != best_.pairs.end();
  }

  /// Tries the triangles whose longest side is the pair, so that each comes up once.
  void tryPair(Pair const& pair, std::size_t a, std::size_t b) {
    if (isKnown(pair.a, a) && isKnown(pair.b, b)) {
      return;
    }
    cv::Vec3d const along = source_[pair.b] - source_[pair.a];
    for (std::size_t const third : sources_) {
      cv::Vec3d const arm = source_[third] - source_[pair.a];
      double const first = cv::norm(arm);
      double const second = distance(source_[pair.b], source_[third]);
      if (first > pair.length || second > pair.length ||
          cv::norm(along.cross(arm)) < leastHeight * tolerance_ * pair.length || pair.length <= 0.0) {
        continue; // one of the two, or on their line
      }
      auto const [near, end] = between(distances_[a], first - 2.0 * tolerance_, first + 2.0 * tolerance_);
      for (auto other = near; other != end; ++other) {
        if (other->second != b && areSame(second, distance(target_[b], target_[other->second]))) {
          consider(motionBetween({source_[pair.a], source_[pair.b], source_[third]},
                                 {target_[a], target_[b], target_[other->second]}));
        }
      }
    }
  }

  /// Calls `body(marker, distance)` for the target's markers that are as near to a place as one marker may
  /// be.
  template <class Body>
  void forNear(cv::Vec3d const& place, Body const& body) const {
    double const reach = 2.0 * tolerance_;
    auto const [first, end] = between(byX_, place[0] - reach, place[0] + reach);
    for (auto near = first; near != end; ++near) {
      if (double const away = distance(place, target_[near->second]); away <= reach) {
        body(near->second, away);
      }
    }
  }

  /// Whether a motion lays so many of the source's markers onto any of the target's.
  bool laysAtLeast(std::size_t wanted, cv::Matx44d const& motion) const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < sources_.size() && count < wanted && count + sources_.size() - i >= wanted;
         ++i) {
      bool isNear = false;
      forNear(moved(motion, source_[sources_[i]]), [&](std::size_t, double) { isNear = true; });
      count += isNear ? 1 : 0;
    }
    return count >= wanted;
  }

  /// The markers that a motion lays onto each other, one onto one, the nearest ones.
  MarkerMatch matchUnder(cv::Matx44d const& motion) const {
    MarkerMatch match;
    match.targetFromSource = motion;
    std::vector<bool> isTaken(target_.size(), false);
    for (std::size_t const i : sources_) {
      cv::Vec3d const place = moved(motion, source_[i]);
      double nearest = 2.0 * tolerance_;
      std::size_t found = target_.size();
      forNear(place, [&](std::size_t j, double away) {
        if (!isTaken[j] && (away < nearest || (away == nearest && (found == target_.size() || j > found)))) {
          nearest = away;
          found = j;
        }
      });
      if (found < target_.size()) {
        isTaken[found] = true;
        match.pairs.emplace_back(i, found);
      }
    }
    return match;
  }

  void fit(MarkerMatch& match) const {
    Points from;
    Points to;
    for (auto const& [i, j] : match.pairs) {
      from.push_back(source_[i]);
      to.push_back(target_[j]);
    }
    match.targetFromSource = motionBetween(from, to);
    double squares = 0.0;
    for (std::size_t i = 0; i < from.size(); ++i) {
      cv::Vec3d const rest = moved(match.targetFromSource, from[i]) - to[i];
      squares += rest.dot(rest);
    }
    match.rms = std::sqrt(squares / static_cast<double>(from.size()));
  }

  void consider(cv::Matx44d const& motion) {
    if (!laysAtLeast(std::max<std::size_t>(3, best_.pairs.size()), motion)) {
      return;
    }
    MarkerMatch match = matchUnder(motion);
    if (match.pairs.size() < 3 || match.pairs.size() < best_.pairs.size()) {
      return;
    }
    fit(match);
    match.pairs = matchUnder(match.targetFromSource).pairs;
    if (match.pairs.size() < 3 || match.rms > tolerance_) {
      return;
    }
    fit(match);
    if (match.pairs.size() > best_.pairs.size()) {
      best_ = match;
      isAmbiguous_ = false;
    } else if (match.pairs.size() == best_.pairs.size() && match.pairs != best_.pairs) {
      isAmbiguous_ = true;
      best_ = match.rms < best_.rms ? match : best_;
    }
  }

  Points const& source_;
  Points const& target_;
  std::vector<std::size_t> sources_;
  std::vector<std::size_t> targets_;
  std::vector<Pair> sourcePairs_;
  std::vector<Pair> targetPairs_;
  double tolerance_;
  std::vector<Sorted> distances_; ///< of each of the target's markers, to the others
  Sorted byX_;                    ///< the target's markers
  MarkerMatch best_;
  bool isAmbiguous_ = false;
};

} // namespace

MarkerMatch matchMarkers(std::vector<cv::Vec3d> const& source, std::vector<cv::Vec3d> const& target,
                         MarkerSettings const& settings) {
  if (!(settings.tolerance >= 0.0)) {
    std::ostringstream text;
    text << "tolerance is " << settings.tolerance << ", not at least 0";
    throw error(text.str(), context);
  }
  return MarkerSearch(source, target, settings).run();
}

} // namespace vorn::mv
