// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/markers.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/error.hpp"
#include "registration/marker_distances.hpp"
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
/// Among hundreds six agree by chance; so many do not.
constexpr std::size_t beyondChance = 12;

std::vector<std::size_t> finiteOnes(MarkerPlaces const& points, char const* name) {
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

std::vector<Pair> pairsOf(MarkerPlaces const& points, std::vector<std::size_t> const& indices) {
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    for (std::size_t j = i + 1; j < indices.size(); ++j) {
      pairs.push_back({indices[i], indices[j], cv::norm(points[indices[i]] - points[indices[j]])});
    }
  }
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](Pair const& x, Pair const& y) { return x.length > y.length; });
  return pairs;
}

/// Those whose number lies between two others.
std::pair<SortedMarkers::const_iterator, SortedMarkers::const_iterator> between(SortedMarkers const& sorted,
                                                                                double low, double high) {
  auto const first = std::lower_bound(sorted.begin(), sorted.end(), std::pair(low, std::size_t{0}));
  return {first, std::upper_bound(first, sorted.end(), std::pair(high, sorted.size()))};
}

class MarkerSearch {
public:
  MarkerSearch(MarkerPlaces const& source, MarkerPlaces const& target, MarkerSettings const& settings)
      : source_(source), target_(target), sources_(finiteOnes(source, "source")),
        targets_(finiteOnes(target, "target")), sourcePairs_(pairsOf(source, sources_)),
        targetPairs_(pairsOf(target, targets_)),
        tolerance_(settings.tolerance > 0.0 ? settings.tolerance
                                            : toleranceOverExtent * sourcePairs_.front().length),
        maxComparisons_(settings.maxComparisons), ofSource_(source_, sources_), ofTarget_(target_, targets_) {
    for (std::size_t const i : targets_) {
      byX_.emplace_back(target_[i][0], i);
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
      if (comparisons_ > maxComparisons_) {
        endEarly();
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
  /// Whether the best motion so far has these markers as they are, so that it would be found again.
  bool isKnown(std::size_t source, std::size_t target) const {
    return std::find(best_.pairs.begin(), best_.pairs.end(), std::pair(source, target)) != best_.pairs.end();
  }

  /// @throws Exception when too few markers agree to believe them without having tried all
  void endEarly() const {
    if (best_.pairs.size() < beyondChance) {
      throw error(
          std::to_string(sources_.size()) + " and " + std::to_string(targets_.size()) +
              " markers agree by chance in too many ways to find the few that may be shared: give fewer, or "
              "a smaller tolerance",
          context);
    }
  }

  /// A marker of each view, about equally far from both markers of a pair.
  struct Coincidence {
    std::size_t source;
    std::size_t target;
    double offset;   ///< in the target from its first marker
    bool isTriangle; ///< with the pair, which is its longest side
    double turn;     ///< of the source's markers about the pair's line, to lay one onto the other
    double slack;    ///< of the turn
  };

  /// Whether a marker makes a triangle with a pair whose longest side that is, and which is not flat.
  bool isThird(Pair const& pair, std::size_t third, double first, double second) const {
    cv::Vec3d const along = source_[pair.b] - source_[pair.a];
    cv::Vec3d const arm = source_[third] - source_[pair.a];
    return first <= pair.length && second <= pair.length &&
           cv::norm(along.cross(arm)) >= leastHeight * tolerance_ * pair.length;
  }

  /// Calls `body(third, first, second, place)` for the source's markers that are no farther from a pair's
  /// first one than a limit, and all places in the target's list of distances from `a` that are as far but
  /// for the tolerance given; until it says no.
  template <class Body>
  void forAlike(Pair const& pair, std::size_t a, double farthest, double tolerance, Body const& body) {
    SortedMarkers const& fromFirst = ofTarget_.from(a);
    std::size_t low = 0;
    for (auto const& [first, third] : ofSource_.from(pair.a)) {
      if (first > farthest) {
        return;
      }
      while (low < fromFirst.size() && fromFirst[low].first < first - tolerance) {
        ++low;
      }
      double const second = ofSource_.between(pair.b, third);
      for (std::size_t i = low; i < fromFirst.size() && fromFirst[i].first <= first + tolerance; ++i) {
        comparisons_ += 1.0;
        if (third != pair.b && !body(third, first, second, fromFirst[i])) {
          return;
        }
      }
    }
  }

  /// Whether any marker makes triangles of the same sides with both pairs.
  bool hasTriangle(Pair const& pair, std::size_t a, std::size_t b) {
    bool isFound = false;
    double const tolerance = 2.0 * tolerance_;
    forAlike(pair, a, pair.length, tolerance,
             [&](std::size_t third, double first, double second, auto const& other) {
               isFound = second <= pair.length && other.second != b &&
                         std::abs(second - ofTarget_.between(b, other.second)) <= tolerance &&
                         isThird(pair, third, first, second);
               return !isFound;
             });
    return isFound;
  }

  /// Lists what is equally far from both pairs, twice as loosely as triangles must be: so that all is listed
  /// which a motion that lays the pairs onto each other may bring together.
  /// @return how many markers of the source lie at the pair itself, with it
  std::size_t listCoincidences(Pair const& pair, std::size_t a, std::size_t b) {
    double const loose = 4.0 * tolerance_;
    coincidences_.clear();
    forAlike(pair, a, std::numeric_limits<double>::max(), loose,
             [&](std::size_t third, double first, double second, auto const& other) {
               double const apart = std::abs(second - ofTarget_.between(b, other.second));
               if (other.second != b && apart <= loose) {
                 bool const isTriangle = std::abs(other.first - first) <= 2.0 * tolerance_ &&
                                         apart <= 2.0 * tolerance_ && isThird(pair, third, first, second);
                 coincidences_.push_back(
                     {third, other.second, other.first, isTriangle, 0.0, std::max(first, second)});
               }
               return true;
             });
    return static_cast<std::size_t>(std::count_if(sources_.begin(), sources_.end(), [&](std::size_t i) {
      return ofSource_.between(pair.a, i) <= loose || ofSource_.between(pair.b, i) <= loose;
    }));
  }

  /// Finds by which turn about the pairs' line each coincidence comes together.
  void findTurns(Pair const& pair, std::size_t a, std::size_t b) {
    AxisFrame const ofSource(source_[pair.a], source_[pair.b]);
    AxisFrame const ofTarget(target_[a], target_[b]);
    for (Coincidence& each : coincidences_) {
      each.turn = ofTarget.angleOf(target_[each.target]) - ofSource.angleOf(source_[each.source]);
      // The line may lie a few tolerances off, beyond the pair's ends more.
      double const off = 6.0 * tolerance_ * (1.0 + each.slack / ofSource.length());
      double const height =
          std::min(ofSource.heightOf(source_[each.source]), ofTarget.heightOf(target_[each.target]));
      each.slack = height > 0.0 ? off / height : std::numeric_limits<double>::infinity();
    }
  }

  /// How many markers of the source may come onto some of the target's by the turn of one coincidence.
  std::size_t countAlike(Coincidence const& wanted) const {
    std::size_t count = 0;
    std::size_t last = source_.size();
    for (Coincidence const& each : coincidences_) {
      double const apart = std::abs(std::remainder(each.turn - wanted.turn, 2.0 * CV_PI));
      if (each.source != last && apart <= each.slack + wanted.slack) {
        ++count;
        last = each.source;
      }
    }
    return count;
  }

  /// How many markers of the source a motion lays onto one of the target's that they coincide with.
  std::size_t countLaid(cv::Matx44d const& motion) const {
    std::size_t count = 0;
    std::size_t last = source_.size();
    for (Coincidence const& each : coincidences_) {
      if (each.source != last &&
          cv::norm(moved(motion, source_[each.source]) - target_[each.target]) <= 2.0 * tolerance_) {
        ++count;
        last = each.source;
      }
    }
    return count;
  }

  /// Tries the triangles whose longest side is the pair, so that each comes up once; only those that more
  /// markers may agree with than with the best so far.
  void tryPair(Pair const& pair, std::size_t a, std::size_t b) {
    if ((isKnown(pair.a, a) && isKnown(pair.b, b)) || pair.length <= 0.0 || ofTarget_.between(a, b) <= 0.0) {
      return;
    }
    if (!hasTriangle(pair, a, b)) {
      return;
    }
    auto const wanted = [&] { return std::max<std::size_t>(3, best_.pairs.size()); };
    std::size_t const atPair = listCoincidences(pair, a, b);
    if (atPair + coincidences_.size() < wanted()) {
      return;
    }
    std::sort(coincidences_.begin(), coincidences_.end(), [](Coincidence const& x, Coincidence const& y) {
      return std::tie(x.source, x.offset, x.target) < std::tie(y.source, y.offset, y.target);
    });
    findTurns(pair, a, b);
    for (Coincidence const& each : coincidences_) {
      if (each.isTriangle && atPair + countAlike(each) >= wanted()) {
        cv::Matx44d const motion = motionBetween({source_[pair.a], source_[pair.b], source_[each.source]},
                                                 {target_[a], target_[b], target_[each.target]});
        if (atPair + countLaid(motion) >= wanted()) {
          consider(motion);
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
      if (double const away = cv::norm(place - target_[near->second]); away <= reach) {
        body(near->second, away);
      }
    }
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
    MarkerPlaces from;
    MarkerPlaces to;
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

  MarkerPlaces const& source_;
  MarkerPlaces const& target_;
  std::vector<std::size_t> sources_;
  std::vector<std::size_t> targets_;
  std::vector<Pair> sourcePairs_;
  std::vector<Pair> targetPairs_;
  double tolerance_;
  double maxComparisons_;
  MarkerDistances ofSource_;
  MarkerDistances ofTarget_;
  std::vector<Coincidence> coincidences_;
  double comparisons_ = 0.0;
  SortedMarkers byX_; ///< the target's markers
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
  if (!(settings.maxComparisons > 0.0)) {
    std::ostringstream text;
    text << "maxComparisons is " << settings.maxComparisons << ", not above 0";
    throw error(text.str(), context);
  }
  return MarkerSearch(source, target, settings).run();
}

} // namespace vorn::mv
