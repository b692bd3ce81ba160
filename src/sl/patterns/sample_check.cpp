// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/sample_check.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <utility>

#include <vorn/core/text.hpp>

#include "sl/patterns/fringe_misfit.hpp"
#include "sl/patterns/level_check.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

namespace {

/// What cameras, lamps and surfaces leave is below; two of sixteen steps exchanged give 0.14.
constexpr double mostMisfit = 0.12;
/// Lamps that flicker by some tenths leave a quarter; a step of another one of three leaves half.
constexpr double mostOfLevel = 0.3;

using Pair = std::pair<std::size_t, std::size_t>;

class Check {
public:
  Check(PatternSet const& set, ReadingPlan const& plan, KeptSamples samples, Progress const& progress)
      : set_(set), samples_(std::move(samples)), groups_(levelGroups(set, plan)), progress_(progress),
        assignment_(set.images.size()) {
    std::iota(assignment_.begin(), assignment_.end(), std::size_t{0});
    assess();
  }

  std::vector<double> const& misfits() const { return misfits_; }
  std::size_t doubted() const {
    std::size_t count = 0;
    for (std::size_t group = 0; group < groups_.size(); ++group) {
      count += isDoubted(group) ? 1 : 0;
    }
    return count;
  }
  std::vector<PatternDoubt> run();

private:
  static bool isIn(std::size_t image, LevelGroup const& group) {
    return std::find(group.images.begin(), group.images.end(), image) != group.images.end();
  }
  bool isDoubted(std::size_t group) const {
    return misfits_[group] > mostMisfit || levels_[group] > mostOfLevel;
  }
  double misfitOf(LevelGroup const& group, Assignment const& assignment, std::uint32_t leftOut = 0) const;
  /// Asks the observer.
  void ask() const { progress_.at("checking", done_); }
  void assess();
  double scoreOf(Pair const& pair, Assignment const& assignment) const;
  bool isMendedBy(Pair const& pair) const;
  std::vector<Pair> exchanges(std::size_t group) const;
  std::size_t stranger(std::size_t group) const;
  PatternDoubt doubtOf(std::size_t group) const;
  std::string textOf(PatternDoubt const& doubt, std::size_t group) const;

  PatternSet const& set_;
  KeptSamples samples_;
  std::vector<LevelGroup> groups_; ///< fringes first
  Progress progress_;
  double done_ = 0.0; ///< share of the search
  Assignment assignment_;
  std::vector<double> misfits_; ///< of each group's steps; NaN of others than fringes
  std::vector<double> levels_;  ///< of each group's mean level
};

/// What is left when what is harmless is taken off; that only where there is something.
double Check::misfitOf(LevelGroup const& group, Assignment const& assignment, std::uint32_t leftOut) const {
  FringeMisfit fringe(*group.fringe, samples_);
  fringe.fit(assignment, leftOut);
  double const raw = fringe.raw();
  return raw > mostMisfit ? fringe.explained() : raw;
}

void Check::assess() {
  misfits_.assign(groups_.size(), std::numeric_limits<double>::quiet_NaN());
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    ask();
    if (groups_[i].fringe != nullptr) {
      misfits_[i] = misfitOf(groups_[i], assignment_);
    }
  }
  Levels const levels(groups_, samples_, assignment_);
  levels_.clear();
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    ask();
    levels_.push_back(levels.misfit(i));
  }
}

/// How ill the groups of two images fit when these are exchanged.
double Check::scoreOf(Pair const& pair, Assignment const& assignment) const {
  double score = 0.0;
  bool const isOfLevel =
      std::any_of(levels_.begin(), levels_.end(), [](double v) { return v > mostOfLevel; });
  std::vector<LevelGroup> const none;
  Levels const levels(isOfLevel ? groups_ : none, samples_, assignment);
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    if (!isIn(pair.first, groups_[i]) && !isIn(pair.second, groups_[i])) {
      continue;
    }
    double ofSteps = 0.0;
    if (groups_[i].fringe != nullptr) {
      FringeMisfit fringe(*groups_[i].fringe, samples_);
      fringe.fit(assignment);
      ofSteps = fringe.raw();
    }
    double const ofLevel = isOfLevel ? levels.misfit(i) : 0.0;
    score += (std::isnan(ofSteps) ? 0.0 : ofSteps) + (std::isnan(ofLevel) ? 0.0 : ofLevel);
  }
  return score;
}

bool Check::isMendedBy(Pair const& pair) const {
  Check exchanged = *this;
  std::swap(exchanged.assignment_[pair.first], exchanged.assignment_[pair.second]);
  exchanged.assess();
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    if ((isIn(pair.first, groups_[i]) || isIn(pair.second, groups_[i])) && exchanged.isDoubted(i)) {
      return false;
    }
  }
  return true;
}

/// The pairs of images one of which is in the group that mend it when they are exchanged, each as well as
/// any other.
std::vector<Pair> Check::exchanges(std::size_t group) const {
  std::vector<std::pair<double, Pair>> found;
  for (std::size_t const own : groups_[group].images) {
    for (std::size_t other = 0; other < groups_.size(); ++other) {
      ask();
      // A bit and its inverse have one mean whichever way round.
      bool const isHarmless = other == group && groups_[group].fringe == nullptr;
      if (isHarmless || !isDoubted(other)) {
        continue;
      }
      for (std::size_t const image : groups_[other].images) {
        if (other == group && image <= own) {
          continue;
        }
        Assignment exchanged = assignment_;
        std::swap(exchanged[own], exchanged[image]);
        double const gain = scoreOf({own, image}, exchanged) - scoreOf({own, image}, assignment_);
        found.push_back({gain, {own, image}});
      }
    }
  }
  std::sort(found.begin(), found.end());
  constexpr double asGood = 0.05;
  constexpr std::size_t most = 4;
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < std::min(most, found.size()); ++i) {
    if (found[i].first <= found[0].first + asGood && isMendedBy(found[i].second)) {
      pairs.push_back(found[i].second);
    }
  }
  return pairs;
}

/// The step without which the others fit, or as many as there are.
std::size_t Check::stranger(std::size_t group) const {
  std::vector<std::size_t> const& images = groups_[group].images;
  constexpr std::size_t fewest = 5; // less one of them, with something left to fit
  double best = mostMisfit;
  std::size_t found = images.size();
  for (std::size_t k = 0; groups_[group].fringe != nullptr && images.size() >= fewest && k < images.size();
       ++k) {
    ask();
    double const without = misfitOf(groups_[group], assignment_, 1U << static_cast<unsigned>(k));
    if (without < best) {
      best = without;
      found = k;
    }
  }
  return found;
}

PatternDoubt Check::doubtOf(std::size_t group) const {
  LevelGroup const& own = groups_[group];
  PatternImage const& first = set_.images[own.images[0]];
  bool const isOfSteps = misfits_[group] > mostMisfit;
  PatternDoubt doubt;
  doubt.fault = isOfSteps ? PatternFault::Steps : PatternFault::Level;
  doubt.axis = first.axis;
  doubt.period = own.fringe != nullptr ? first.period : 0.0;
  doubt.images = own.images;
  doubt.value = isOfSteps ? misfits_[group] : levels_[group];
  doubt.limit = isOfSteps ? mostMisfit : mostOfLevel;
  doubt.text = textOf(doubt, group);
  return doubt;
}

std::string Check::textOf(PatternDoubt const& doubt, std::size_t group) const {
  std::string const values =
      toString(std::round(100.0 * doubt.value) / 100.0) + " (limit " + toString(doubt.limit) + ")";
  if (doubt.fault == PatternFault::Steps) {
    return "the steps " + ofFringe(groups_[group].fringe->fringe) + " stray from it by " + values +
           " of their swing";
  }
  std::string const what = doubt.period > 0.0 ? "the steps " + ofFringe(groups_[group].fringe->fringe)
                                              : nameWithin(set_, doubt.images.front());
  std::string const with =
      doubt.period > 0.0 || doubt.images.size() < 2 ? "" : " with " + nameWithin(set_, doubt.images.back());
  return "the mean brightness of " + what + with + " is not that of the other patterns, by " + values +
         " of their swing";
}

std::vector<PatternDoubt> Check::run() {
  // Of images that came in any order, no two are to be exchanged, and looking for them takes a minute.
  constexpr std::size_t mostSought = 6;
  bool const isSought = doubted() <= mostSought;
  std::vector<PatternDoubt> doubts;
  for (std::size_t group = 0; group < groups_.size(); ++group) {
    done_ = static_cast<double>(group) / static_cast<double>(groups_.size());
    if (!isDoubted(group)) {
      continue;
    }
    PatternDoubt doubt = doubtOf(group);
    std::vector<Pair> const pairs = isSought ? exchanges(group) : std::vector<Pair>();
    bool const isAlone = isSought && pairs.empty();
    std::size_t const strange = isAlone ? stranger(group) : groups_[group].images.size();
    if (!pairs.empty()) {
      doubt.images.clear();
      for (auto const& [one, other] : pairs) {
        doubt.text += (doubt.images.empty() ? ": " : ", or ") + nameWithin(set_, one) + " and " +
                      nameWithin(set_, other);
        doubt.images.insert(doubt.images.end(), {one, other});
      }
      doubt.text += " look exchanged";
      std::swap(assignment_[pairs[0].first], assignment_[pairs[0].second]);
      assess();
    } else if (strange < groups_[group].images.size()) {
      doubt.images = {groups_[group].images[strange]};
      doubt.text += ": without " + nameWithin(set_, doubt.images[0]) + " the others fit";
    }
    doubts.push_back(std::move(doubt));
  }
  return doubts;
}

} // namespace

SampleCheck checkSamples(PatternSet const& set, ReadingPlan const& plan, KeptSamples const& samples,
                         Progress const& progress) {
  Check const check(set, plan, samples, progress.part(0.0, 0.1));
  SampleCheck result;
  result.misfits.assign(check.misfits().begin(),
                        check.misfits().begin() + static_cast<std::ptrdiff_t>(plan.fringes.size()));
  if (check.doubted() > 0) {
    // Which images they are shows at a few places.
    constexpr std::size_t enough = 400;
    result.doubts = Check(set, plan, samples.thinned(enough), progress.part(0.1, 0.5)).run();
    if (result.doubts.empty()) {
      result.doubts = Check(set, plan, samples, progress.part(0.5, 1.0)).run();
    }
  }
  return result;
}

} // namespace vorn::mv::sl
