// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/register_views.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include "core/error.hpp"
#include "core/median.hpp"
#include "pointcloud/sensor_frame.hpp"
#include "registration/held_motions.hpp"
#include "registration/pair_equations.hpp"
#include "registration/registration_checks.hpp"
#include "registration/robust_pairs.hpp"
#include "registration/small_motion.hpp"
#include "registration/surface_registration.hpp"
#include "registration/view_equations.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "registerViews";
/// Samples a view of the first pass.
constexpr int leadingSamples = 4000;
constexpr int mostLeadingSteps = 40;
/// Steps below this share of the result's standard deviation change nothing that matters.
constexpr double smallStep = 0.1;
constexpr double smallLeadingStep = 0.5;

void checkSettings(ViewsSettings const& settings, std::size_t views) {
  if (views < 2) {
    refuse("The number of views", views, "2 or more", context);
  }
  if (!settings.frameFromView.empty() && settings.frameFromView.size() != views) {
    refuse("The length of frameFromView", settings.frameFromView.size(), "that of the views", context);
  }
  for (std::size_t i = 0; i < settings.frameFromView.size(); ++i) {
    checkStart(settings.frameFromView[i], "frameFromView of view " + std::to_string(i), context);
  }
  if (settings.fixedView >= views) {
    refuse("fixedView", settings.fixedView, "an index of a view", context);
  }
  checkPairing(settings, context);
  if (!(settings.minOverlap > 0.0 && settings.minOverlap <= 1.0)) {
    refuse("minOverlap", settings.minOverlap, "above 0 .. 1", context);
  }
}

/// A cloud with what finds places on it.
struct View {
  PointCloud cloud;
  std::unique_ptr<SurfaceMatcher> surface;
  SourceSamples samples;
  cv::Matx44d frameFromView;

  cv::Vec3d middle() const {
    cv::Vec3d const own = surface->middle();
    cv::Vec4d const moved = frameFromView * cv::Vec4d(own[0], own[1], own[2], 1.0);
    return {moved[0], moved[1], moved[2]};
  }
};

/// Two views that may overlap.
struct ViewPair {
  std::size_t source;
  std::size_t target;
  PairRule rule;
  std::vector<SurfacePair> pairs;
  PairEquations equations;
  bool isUsed = false;
  double sigma = 0.0;
  double overlap = 0.0;
};

class ViewsWork {
public:
  ViewsWork(std::vector<PointCloud> const& clouds, ViewsSettings const& settings, Progress const& progress)
      : settings_(settings), progress_(progress) {
    addViews(clouds);
    for (std::size_t source = 1; source < views_.size(); ++source) {
      for (std::size_t target = 0; target < source; ++target) {
        pairs_.push_back({source, target, firstRule(target), {}, {}});
      }
    }
  }

  ViewsRegistration run() {
    // Without a second pass where the first takes all.
    pass(leadingSamples, false);
    if (result_.stop != RegistrationStop::NoOverlap) {
      pairs_.erase(
          std::remove_if(pairs_.begin(), pairs_.end(), [](ViewPair const& pair) { return !pair.isUsed; }),
          pairs_.end());
      readBetweenPoints();
      pass(settings_.maxSamples, true);
    }
    report();
    return std::move(result_);
  }

private:
  void addViews(std::vector<PointCloud> const& clouds) {
    for (std::size_t i = 0; i < clouds.size(); ++i) {
      clouds[i].checkSizes();
      requireSensorFrame(clouds[i], i, context);
      View view;
      view.cloud = withNormals(clouds[i], progress_);
      view.surface = std::make_unique<SurfaceMatcher>(view.cloud);
      view.frameFromView = settings_.frameFromView.empty() ? cv::Matx44d::eye() : settings_.frameFromView[i];
      checkCount(view.surface->usableCount(), "View " + std::to_string(i), context);
      double const size = view.surface->size();
      double const first = views_.empty() ? size : views_.front().surface->size();
      if (!(std::max(size / first, first / size) < mostSizeRatio)) {
        std::ostringstream text;
        text
            << "View " << i << " measures " << size << ", the first one " << first
            << " (RMS distance from their middles): too different for one part; are they in different units?";
        throw error(text.str(), context);
      }
      views_.push_back(std::move(view));
      progress_.at("normals", 0.3 * static_cast<double>(i + 1) / static_cast<double>(clouds.size()));
    }
    for (View const& view : views_) {
      result_.pivot += view.middle() * (1.0 / static_cast<double>(views_.size()));
      size_ = std::max(size_, view.surface->size());
    }
  }

  /// From near the result on: what lies beyond a rim leads there from farther away.
  void readBetweenPoints() {
    for (View& view : views_) {
      if (view.cloud.isOrganized() && view.cloud.isContinous()) {
        view.surface->readBetweenPoints(false); // lists would take memory for each point's neighbours
      }
    }
  }

  PairRule firstRule(std::size_t target) const {
    // Far beyond all clouds, whatever their unit.
    constexpr double anywhere = 1e3;
    PairRule rule;
    rule.leastCosine = std::cos(settings_.maxNormalAngle * CV_PI / 180.0);
    rule.maxDistance =
        settings_.maxDistance > 0.0 ? settings_.maxDistance : anywhere * views_[target].surface->size();
    return rule;
  }

  void pass(int samples, bool isLast) {
    for (View& view : views_) {
      auto const count = static_cast<double>(view.surface->usableCount());
      double const wanted = samples > 0 ? std::min<double>(samples, count) : count;
      view.samples =
          sampleEvenly(view.cloud, std::max(1, static_cast<int>(std::lround(std::sqrt(count / wanted)))));
    }
    for (ViewPair& pair : pairs_) {
      pair.pairs.clear();
    }
    result_.stop = RegistrationStop::IterationLimit;
    int const most = isLast ? settings_.maxIterations : std::min(mostLeadingSteps, settings_.maxIterations);
    for (int i = 0; i < most; ++i) {
      double size = 0.0;
      if (!step(size)) {
        result_.stop = RegistrationStop::NoOverlap;
        return;
      }
      ++result_.iterations;
      if (size < (isLast ? smallStep : smallLeadingStep)) {
        result_.stop = RegistrationStop::Converged;
        return;
      }
    }
  }

  /// Finds the places of all samples on all other views, and which pairs overlap.
  bool findAllPairs() {
    bool isAny = false;
    for (ViewPair& pair : pairs_) {
      View const& source = views_[pair.source];
      View const& target = views_[pair.target];
      findPairs(source.samples, *target.surface, target.frameFromView.inv() * source.frameFromView, pair.rule,
                pair.pairs, progress_);
      auto const valid = static_cast<std::size_t>(std::count_if(
          pair.pairs.begin(), pair.pairs.end(), [](SurfacePair const& each) { return each.isValid; }));
      auto const total = static_cast<double>(source.samples.size());
      pair.isUsed = valid >= fewestPoints && static_cast<double>(valid) >= settings_.minOverlap * total;
      isAny = isAny || pair.isUsed;
    }
    return isAny;
  }

  /// Each view lies on its best neighbour by about what its start is off. Pairs of views that see different
  /// places find points on each other as well, but far ones, which must not count.
  void narrowGates() {
    if (settings_.maxDistance > 0.0) {
      return;
    }
    constexpr double none = std::numeric_limits<double>::infinity();
    std::vector<double> best(views_.size(), none);
    for (ViewPair const& pair : pairs_) {
      if (pair.isUsed) {
        double const median =
            medianOf(valuesOfPairs(pair.pairs, [](SurfacePair const& each) { return each.distance; }));
        best[pair.source] = std::min(best[pair.source], median);
        best[pair.target] = std::min(best[pair.target], median);
      }
    }
    best.erase(std::remove(best.begin(), best.end(), none), best.end());
    // Starts differ, but a view far beyond the others' errors has no neighbour.
    constexpr double mostOverUsual = 5.0;
    double const usual = medianOf(best);
    double const largest = std::min(*std::max_element(best.begin(), best.end()), mostOverUsual * usual);
    for (ViewPair& pair : pairs_) {
      pair.rule.maxDistance = gateOverMedian * largest + views_[pair.target].surface->spacing();
    }
    hasGates_ = true;
  }

  bool step(double& sizeInDeviations) {
    bool isAny = findAllPairs();
    if (isAny && !hasGates_) {
      narrowGates();
      isAny = findAllPairs();
    }
    if (!isAny) {
      return false;
    }
    for (ViewPair& pair : pairs_) {
      if (pair.isUsed) {
        pair.sigma = sigmaOfPairs(pair.pairs);
        pair.equations = sumEquations(views_[pair.source].samples, pair.pairs, cutoffOverSigma * pair.sigma);
        pair.overlap = static_cast<double>(pair.equations.count) /
                       static_cast<double>(views_[pair.source].samples.size());
      }
    }
    narrowGates();
    ViewEquations const equations = sumAll();
    std::vector<cv::Vec6d> const steps = equations.solve();
    sizeInDeviations = equations.sizeInDeviations(steps);
    for (std::size_t i = 0; i < views_.size(); ++i) {
      views_[i].frameFromView = movedBySmall(views_[i].frameFromView, steps[i], result_.pivot, size_);
    }
    return true;
  }

  ViewEquations sumAll() {
    findGroups();
    std::vector<bool> isFixed(views_.size(), false);
    for (std::vector<std::size_t> const& group : result_.groups) {
      bool const hasFixed = std::find(group.begin(), group.end(), settings_.fixedView) != group.end();
      isFixed[hasFixed ? settings_.fixedView : group.front()] = true;
    }
    ViewEquations equations(isFixed, result_.pivot, size_);
    for (ViewPair const& pair : pairs_) {
      if (pair.isUsed) {
        View const& target = views_[pair.target];
        equations.add(pair.source, pair.target, pair.equations, target.frameFromView, *target.surface,
                      varianceOf(pair));
      }
    }
    equations.split();
    return equations;
  }

  double varianceOf(ViewPair const& pair) const {
    double const resolution =
        std::max(views_[pair.source].surface->resolution(), views_[pair.target].surface->resolution());
    return pair.equations.squares / pair.equations.weights + resolution * resolution;
  }

  void findGroups() {
    std::vector<std::size_t> leader(views_.size());
    for (std::size_t i = 0; i < leader.size(); ++i) {
      leader[i] = i;
    }
    for (ViewPair const& pair : pairs_) {
      if (pair.isUsed && leader[pair.source] != leader[pair.target]) {
        std::size_t const gone = std::max(leader[pair.source], leader[pair.target]);
        std::size_t const kept = std::min(leader[pair.source], leader[pair.target]);
        std::replace(leader.begin(), leader.end(), gone, kept);
      }
    }
    result_.groups.clear();
    std::vector<std::size_t> numbers(views_.size());
    for (std::size_t i = 0; i < leader.size(); ++i) {
      if (leader[i] == i) {
        numbers[i] = result_.groups.size();
        result_.groups.emplace_back();
      }
      result_.groups[numbers[leader[i]]].push_back(i);
    }
  }

  void report() {
    result_.views.resize(views_.size());
    ViewEquations const equations = sumAll();
    std::vector<cv::Matx66d> const covariances = equations.covariances();
    for (std::size_t i = 0; i < views_.size(); ++i) {
      RegisteredView& view = result_.views[i];
      view.frameFromView = views_[i].frameFromView;
      HeldMotions motions;
      motions.free = equations.freeMotions(i);
      cv::Matx66d const free = projectionOnto(motions.free);
      for (int k = 0; k < 6; ++k) {
        for (int l = 0; l < 6; ++l) {
          // Held motions are lengths, as are translations; free ones are a turn by 1 and a shift by the size.
          double const value = covariances[i](k, l) + free(k, l) * size_ * size_;
          view.covariance(k, l) = value / ((k < 3 ? size_ : 1.0) * (l < 3 ? size_ : 1.0));
        }
      }
      view.freeMotions = freeMotionsOf(motions, result_.pivot, size_);
    }
    for (std::size_t group = 0; group < result_.groups.size(); ++group) {
      for (std::size_t const view : result_.groups[group]) {
        result_.views[view].group = group;
      }
    }
    reportFits();
  }

  void reportFits() {
    std::vector<PairEquations> sums(views_.size());
    PairEquations all;
    for (ViewPair const& pair : pairs_) {
      if (!pair.isUsed) {
        continue;
      }
      result_.pairs.push_back({pair.source, pair.target, pair.overlap,
                               std::sqrt(pair.equations.squares / pair.equations.weights), pair.sigma,
                               pair.equations.count});
      sums[pair.source].add(pair.equations);
      sums[pair.target].add(pair.equations);
      all.add(pair.equations);
    }
    for (std::size_t i = 0; i < views_.size(); ++i) {
      result_.views[i].matches = sums[i].count;
      result_.views[i].rms = sums[i].count > 0 ? std::sqrt(sums[i].squares / sums[i].weights) : 0.0;
    }
    result_.rms = all.count > 0 ? std::sqrt(all.squares / all.weights) : 0.0;
  }

  ViewsSettings const& settings_;
  Progress progress_;
  std::vector<View> views_;
  std::vector<ViewPair> pairs_;
  bool hasGates_ = false;
  double size_ = 0.0;
  ViewsRegistration result_;
};

} // namespace

ViewsRegistration registerViews(std::vector<PointCloud> const& views, ViewsSettings const& settings,
                                Observer* observer) {
  checkSettings(settings, views.size());
  return ViewsWork(views, settings, Progress(observer)).run();
}

} // namespace vorn::mv
