// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/diagnosis.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/bundle_start.hpp"
#include "calib/adjust/lens_findings.hpp"
#include "calib/adjust/solved_views.hpp"
#include "calib/adjust/view_statistics.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

namespace {

/// Of two devices that at least 3 views show.
std::vector<TransformDeviation> deviationsOf(Bundle const& bundle) {
  std::vector<TransformDeviation> deviations;
  constexpr std::size_t fewest = 3;
  if (bundle.views.size() >= fewest && bundle.devices.size() > 1) {
    for (OwnTransform const& own : ownTransformsOf(bundle)) {
      deviations.push_back({own.turn, own.shift, own.gain / 6});
    }
  }
  return deviations;
}

class Diagnosis {
public:
  Diagnosis(std::vector<AdjustmentView> const& views, Adjustment const& adjustment, Observer* observer)
      : solved_(views, adjustment), views_(solved_.views), adjustment_(solved_.adjustment),
        bundle_(solved_.bundle), progress_(observer) {}

  std::vector<Finding> run() {
    findMirrored();
    bool const isMirrored = !findings_.empty();
    findWrongDots();
    if (!isMirrored && findSingleLens()) {
      findPoorViews();
      return std::move(findings_);
    }
    findBentTarget();
    if (findings_.empty() || findings_.back().cause == FindingCause::BentTarget ||
        findings_.back().cause == FindingCause::WrongDots) {
      findWhatResidualsTell();
    }
    findPoorViews();
    return std::move(findings_);
  }

private:
  void add(FindingCause cause, int view, int device, double value, double limit, std::string text,
           bool isGrave) {
    findings_.push_back({cause, view, device, value, limit, std::move(text), adviceOf(cause), isGrave});
  }

  /// Images whose dots turn the other way round than in most of the (first) camera's: which way that is goes
  /// by how the target's axes are drawn.
  void findMirrored() {
    double sum = 0;
    for (AdjustmentView const& view : views_) {
      sum += handednessOf(view, 0);
    }
    double const usual = sum < 0 ? -1 : 1;
    for (std::size_t i = 0; i < views_.size(); ++i) {
      for (int device = 0; device < solved_.deviceCount(); ++device) {
        double const turn = usual * handednessOf(views_[i], device);
        if (turn < 0) {
          add(FindingCause::Mirrored, static_cast<int>(i), device, turn, 0,
              solved_.viewName(i) + ": the image of " + solved_.deviceName(device) + " is mirrored", true);
        }
      }
    }
  }

  void findWrongDots() {
    constexpr double mostShare = 0.005; // of sound views up to 0.15 %: dots that a border cuts
    std::size_t wrong = 0;
    std::size_t all = 0;
    for (ViewAdjustment const& view : adjustment_.views) {
      wrong += view.leftOut.size();
      all += view.leftOut.size() + static_cast<std::size_t>(view.dotCount);
    }
    double const share = static_cast<double>(wrong) / static_cast<double>(std::max<std::size_t>(1, all));
    if (share > mostShare) {
      add(FindingCause::WrongDots, -1, -1, share, mostShare,
          std::to_string(wrong) + " of " + std::to_string(all) +
              " dots are not where they should be; they were left out",
          false);
    }
  }

  void findBentTarget() {
    constexpr double leastSignificance = 6;
    constexpr double leastShare = 0.5;
    TargetShape const& shape = adjustment_.shape;
    double const flatExcess = shape.flatS0 * shape.flatS0 - 1;
    double const explained = shape.flatS0 * shape.flatS0 - adjustment_.s0 * adjustment_.s0;
    if (shape.kind != TargetShape::Kind::Flat && shape.significance > leastSignificance &&
        shape.flatS0 > mostChanceS0 && explained > leastShare * flatExcess) {
      add(FindingCause::BentTarget, -1, -1, shape.significance, leastSignificance,
          "The target is off its shape by " + rounded(shape.rms, 3) + " mm root mean square, bent by " +
              rounded(shape.sagX, 3) + " mm along x and " + rounded(shape.sagY, 3) +
              " mm along y; the calibration takes it into account",
          false);
    }
  }

  /// One cause for residuals that are greater than noise; of views that disagree in small, which.
  void findWhatResidualsTell() {
    if (adjustment_.s0 > mostChanceS0 && findWrongView()) {
      return;
    }
    if (adjustment_.s0 > mostChanceS0 && solved_.deviceCount() > 1 && findStep()) {
      return;
    }
    findSmallFaults();
  }

  bool findSingleLens() {
    std::vector<Finding> const found = singleLensFindings(
        solved_, [this] { return worstView().s0Without; }, progress_);
    findings_.insert(findings_.end(), found.begin(), found.end());
    return !found.empty();
  }

  /// The view without which the residuals are least.
  struct WorstView {
    std::size_t view = 0;
    double s0Without = std::numeric_limits<double>::infinity();
  };

  WorstView const& worstView() {
    if (!worst_) {
      worst_ = WorstView();
      for (std::size_t i = 0; i < views_.size(); ++i) {
        progress_.at("diagnosing", 0.5 * static_cast<double>(i) / static_cast<double>(views_.size()));
        Bundle without = bundle_;
        without.views.erase(without.views.begin() + static_cast<std::ptrdiff_t>(i));
        if (auto const s0 = solvedS0(without); s0 && *s0 < worst_->s0Without) {
          worst_ = WorstView{i, *s0};
        }
      }
    }
    return *worst_;
  }

  bool findWrongView() {
    constexpr double mostRatio = 0.6;
    if (views_.size() < fewestViewsToTell) {
      return false;
    }
    auto const [worst, least] = worstView();
    double const ratio = least / adjustment_.s0;
    if (!(ratio < mostRatio)) {
      return false;
    }
    add(FindingCause::WrongView, static_cast<int>(worst), -1, ratio, mostRatio,
        solved_.viewName(worst) + ": without this view the residuals are " + rounded(100 * ratio, 0) +
            " % of what they are with it",
        true);
    return true;
  }

  /// Two transforms, of the views before and from some view on.
  Bundle splitAt(std::size_t first) const {
    Bundle split = bundle_;
    split.otherStations = {split.dev0_from_dev1};
    for (std::size_t i = first; i < split.views.size(); ++i) {
      split.views[i].station = 1;
    }
    return split;
  }

  bool findStep() {
    constexpr double mostRatio = 0.5;
    std::size_t best = 0;
    double greatest = 0;
    for (std::size_t first = 2; first + 1 < views_.size(); ++first) {
      double const gain = gainOf(bundle_, splitAt(first));
      if (gain > greatest) {
        greatest = gain;
        best = first;
      }
    }
    if (best == 0) {
      return false;
    }
    Bundle split = splitAt(best);
    auto const s0 = solvedS0(split);
    double const ratio = s0 ? *s0 / adjustment_.s0 : 1;
    if (!(ratio < mostRatio)) {
      return false;
    }
    auto const index = static_cast<int>(best);
    if (auto lens = changedLens(solved_, best)) {
      findings_.push_back(std::move(*lens));
      return true;
    }
    Placement const& before = split.dev0_from_dev1;
    double const degrees = angleBetween(before.R, split.otherStations[0].R) * 180 / CV_PI;
    add(FindingCause::DeviceMoved, index, -1, ratio, mostRatio,
        "A device moved before " + solved_.viewName(best) + ": the two turned by " + rounded(degrees, 3) +
            " degrees to each other, shifted by " + rounded(cv::norm(before.t - split.otherStations[0].t), 3),
        true);
    return true;
  }

  /// Views that disagree on the transform, or a lens that five coefficients do not describe: what explains
  /// more.
  void findSmallFaults() {
    std::vector<double> const gains = disagreements();
    auto const greatest = std::max_element(gains.begin(), gains.end());
    if (auto lens = lensModelFinding(solved_, greatest == gains.end() ? 0 : *greatest)) {
      findings_.push_back(std::move(*lens));
      return;
    }
    // A sixth of it, 1 by chance: of what the other causes leave, not of the noise alone.
    double const mostChi2 = 30 * std::max(1.0, adjustment_.s0 * adjustment_.s0);
    for (std::size_t i = 0; i < gains.size(); ++i) {
      double const chi2 = gains[i] / 6;
      if (chi2 > mostChi2) {
        add(FindingCause::ViewDisagrees, static_cast<int>(i), -1, chi2, mostChi2,
            solved_.viewName(i) + ": shows the devices elsewhere to each other than the other views do",
            true);
      }
    }
  }

  /// By how much the squares fall when a view has a transform of its own.
  std::vector<double> disagreements() const {
    std::vector<double> gains;
    for (TransformDeviation const& deviation : deviationsOf(bundle_)) {
      gains.push_back(6 * deviation.chi2);
    }
    return gains;
  }

  /// What the places and tilts of the target leave to be desired.
  void findPoorViews() {
    constexpr double leastCoverage[] = {0.6, 0.5};
    for (int device = 0; device < solved_.deviceCount(); ++device) {
      cv::Size const size = adjustment_.models[static_cast<std::size_t>(device)].getResolution();
      double const share = coverageOf(views_, device, size);
      if (share < leastCoverage[device] && solved_.isFree(device)) {
        add(FindingCause::Coverage, -1, device, share, leastCoverage[device],
            "The dots fill " + rounded(100 * share, 0) + " % of the image of " + solved_.deviceName(device),
            false);
      }
    }
    constexpr double leastTilt = 25;
    double const tilt = greatestTiltOf(adjustment_.poses);
    if (tilt < leastTilt && (solved_.isFree(0) || (solved_.deviceCount() > 1 && solved_.isFree(1)))) {
      add(FindingCause::SmallTilts, -1, -1, tilt, leastTilt,
          "The target's directions differ by " + rounded(tilt, 0) + " degrees at most", false);
    }
    constexpr double leastMotion = 2;
    std::vector<SeenDots> seen;
    std::transform(views_.begin(), views_.end(), std::back_inserter(seen), seenDotsOf);
    for (std::size_t i = 0; i < views_.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        double const motion = motionBetween(seen[j], seen[i]);
        if (motion < leastMotion) {
          add(FindingCause::SamePose, static_cast<int>(i), -1, motion, leastMotion,
              solved_.viewName(i) + ": shows the same pose as " + solved_.viewName(j) + ", to " +
                  rounded(motion, 1) + " px",
              false);
        }
      }
    }
  }

  /// The residuals over the noise once solved; nothing when there is no solution.
  static std::optional<double> solvedS0(Bundle& bundle) {
    constexpr int rounds = 30;
    try {
      solveBundle(bundle, rounds);
    } catch (Exception const&) {
      return std::nullopt;
    }
    return bundleS0(bundle);
  }

  SolvedViews solved_;
  std::vector<AdjustmentView> const& views_;
  Adjustment const& adjustment_;
  Bundle const& bundle_;
  Progress progress_;
  std::vector<Finding> findings_;
  std::optional<WorstView> worst_;
};

} // namespace

std::vector<TransformDeviation> transformDeviations(std::vector<AdjustmentView> const& views,
                                                    Adjustment const& adjustment) {
  return deviationsOf(SolvedViews(views, adjustment).bundle);
}

std::vector<Finding> diagnose(std::vector<AdjustmentView> const& views, Adjustment const& adjustment,
                              Observer* observer) {
  return Diagnosis(views, adjustment, observer).run();
}

} // namespace vorn::mv
