// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/diagnosis.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/bundle_start.hpp"
#include "calib/adjust/lens_changes.hpp"
#include "calib/adjust/view_statistics.hpp"
#include "core/error.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

namespace {

/// Residuals that exceed the noise by more are not chance.
constexpr double mostS0 = 1.3;

/// Views of which one may be told from the others.
constexpr std::size_t fewestToTell = 4;

std::string rounded(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

/// A finding of a view with its name.
std::string named(AdjustmentView const& view, int index) {
  return view.name.empty() ? "view " + std::to_string(index) : view.name;
}

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

/// Of the lists' lengths; which dots they are about, `solvedBundle` sees.
void requireTogether(std::vector<AdjustmentView> const& views, Adjustment const& adjustment) {
  if (adjustment.poses.size() != views.size() || adjustment.views.size() != views.size() ||
      adjustment.models.empty()) {
    throw error("The adjustment has " + std::to_string(adjustment.poses.size()) + " views, not " +
                    std::to_string(views.size()),
                "diagnose");
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    AdjustmentView const& view = views[i];
    std::size_t const count = view.objPnts.size();
    bool const hasSecond = adjustment.models.size() < 2 || view.points1.size() == count;
    bool const hasSigmas = (view.sigmas.empty() || view.sigmas.size() == count) &&
                           (view.sigmas1.empty() || view.sigmas1.size() == view.points1.size());
    if (view.points0.size() != count || !hasSecond || !hasSigmas) {
      throw error(named(view, static_cast<int>(i)) + " has lists of different lengths", "diagnose");
    }
  }
}

class Diagnosis {
public:
  Diagnosis(std::vector<AdjustmentView> const& views, Adjustment const& adjustment, Observer* observer)
      : views_(views), adjustment_(adjustment), progress_(observer) {
    requireTogether(views, adjustment);
    bundle_ = solvedBundle(views, adjustment);
  }

  std::vector<Finding> run() {
    findMirrored();
    bool const isMirrored = !findings_.empty();
    findWrongDots();
    if (!isMirrored && findLensFault()) {
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
      for (int device = 0; device < deviceCount(); ++device) {
        double const turn = usual * handednessOf(views_[i], device);
        if (turn < 0) {
          add(FindingCause::Mirrored, static_cast<int>(i), device, turn, 0,
              named(views_[i], static_cast<int>(i)) + ": the image of " + deviceName(device) + " is mirrored",
              true);
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
        shape.flatS0 > mostS0 && explained > leastShare * flatExcess) {
      add(FindingCause::BentTarget, -1, -1, shape.significance, leastSignificance,
          "The target is off its shape by " + rounded(shape.rms, 3) + " mm root mean square, bent by " +
              rounded(shape.sagX, 3) + " mm along x and " + rounded(shape.sagY, 3) +
              " mm along y; the calibration takes it into account",
          false);
    }
  }

  /// One cause for residuals that are greater than noise; of views that disagree in small, which.
  void findWhatResidualsTell() {
    if (adjustment_.s0 > mostS0 && findWrongView()) {
      return;
    }
    if (adjustment_.s0 > mostS0 && deviceCount() > 1 && findStep()) {
      return;
    }
    findSmallFaults();
  }

  /// What a single camera's lens has to do with residuals that are greater than noise. Tried before the
  /// target's shape, which would take a part of it up.
  bool findLensFault() {
    double const s0 = std::max(adjustment_.s0, adjustment_.shape.flatS0);
    if (deviceCount() > 1 || !isFree(0) || views_.size() < fewestToTell || !(s0 > mostS0)) {
      return false;
    }
    try {
      Bundle const flat = flattened(bundle_, progress_);
      return findMirroredByLens(flat, s0) || findLensChange(flat, s0);
    } catch (Cancelled const&) {
      throw;
    } catch (Exception const&) { // a flat target has no solution
      return false;
    }
  }

  bool findMirroredByLens(Bundle const& flat, double s0) {
    constexpr double mostRatio = 0.6;
    auto const mirrored = bestMirroredImages(flat, adjustment_.models[0].getResolution(), progress_);
    // Turned back, a view tells as much as the others; one of no pose does not.
    constexpr double mostMore = 1.15;
    if (!mirrored || !(mirrored->s0 < mostRatio * s0) || !(mirrored->s0 < mostMore * worstView().s0Without)) {
      return false;
    }
    double const ratio = mirrored->s0 / s0;
    for (std::size_t const view : mirrored->views) {
      add(FindingCause::Mirrored, static_cast<int>(view), 0, ratio, mostRatio,
          named(views_[view], static_cast<int>(view)) +
              ": the image of the camera is mirrored, or the others are: turned back, the residuals are " +
              rounded(100 * ratio, 0) + " % of what they are",
          true);
    }
    return true;
  }

  bool findLensChange(Bundle const& flat, double s0) {
    constexpr double leastShare = 0.7;
    auto const change = bestLensChange(flat, progress_);
    // A single view that does not fit is no change.
    constexpr double muchLess = 0.8;
    if (!change || !(change->s0 < adjustment_.s0) || worstView().s0Without < muchLess * change->s0) {
      return false;
    }
    double const share = (s0 * s0 - change->s0 * change->s0) / (s0 * s0 - 1);
    if (!(share > leastShare)) {
      return false;
    }
    auto const index = static_cast<int>(change->first);
    add(FindingCause::FocusChanged, index, 0, share, leastShare,
        "Focus or zoom of the camera changed before " + named(views_[change->first], index) +
            ": its focal length went from " + rounded(change->before, 1) + " to " +
            rounded(change->after, 1) + " px, which explains " + rounded(100 * share, 0) +
            " % of what the residuals are beyond noise",
        true);
    return true;
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
    if (views_.size() < fewestToTell) {
      return false;
    }
    auto const [worst, least] = worstView();
    double const ratio = least / adjustment_.s0;
    if (!(ratio < mostRatio)) {
      return false;
    }
    add(FindingCause::WrongView, static_cast<int>(worst), -1, ratio, mostRatio,
        named(views_[worst], static_cast<int>(worst)) + ": without this view the residuals are " +
            rounded(100 * ratio, 0) + " % of what they are with it",
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
    if (findChangedLens(best)) {
      return true;
    }
    Placement const& before = split.dev0_from_dev1;
    double const degrees = angleBetween(before.R, split.otherStations[0].R) * 180 / CV_PI;
    add(FindingCause::DeviceMoved, index, -1, ratio, mostRatio,
        "A device moved before " + named(views_[best], index) + ": the two turned by " + rounded(degrees, 3) +
            " degrees to each other, shifted by " + rounded(cv::norm(before.t - split.otherStations[0].t), 3),
        true);
    return true;
  }

  /// Of two devices between which something changed, the one that shows it by itself: its lens.
  bool findChangedLens(std::size_t first) {
    constexpr double mostChi2 = 30;
    int changed = 0;
    double greatest = 0;
    for (int device = 0; device < deviceCount(); ++device) {
      double const chi2 = lensChangeAlone(device, first);
      if (chi2 > greatest) {
        greatest = chi2;
        changed = device;
      }
    }
    if (!(greatest > mostChi2)) {
      return false;
    }
    auto const index = static_cast<int>(first);
    add(FindingCause::FocusChanged, index, changed, greatest, mostChi2,
        "Focus or zoom of " + deviceName(changed) + " changed before " + named(views_[first], index) +
            ": by itself it fits " + rounded(greatest, 0) + " times better with another lens from there on",
        true);
    return true;
  }

  /// Views that disagree on the transform, or a lens that five coefficients do not describe: what explains
  /// more.
  void findSmallFaults() {
    std::vector<double> const gains = disagreements();
    auto const greatest = std::max_element(gains.begin(), gains.end());
    std::vector<Finding> const lenses = lensFindings(greatest == gains.end() ? 0 : *greatest);
    if (!lenses.empty()) {
      findings_.insert(findings_.end(), lenses.begin(), lenses.end());
      return;
    }
    // A sixth of it, 1 by chance: of what the other causes leave, not of the noise alone.
    double const mostChi2 = 30 * std::max(1.0, adjustment_.s0 * adjustment_.s0);
    for (std::size_t i = 0; i < gains.size(); ++i) {
      double const chi2 = gains[i] / 6;
      if (chi2 > mostChi2) {
        add(FindingCause::ViewDisagrees, static_cast<int>(i), -1, chi2, mostChi2,
            named(views_[i], static_cast<int>(i)) +
                ": shows the devices elsewhere to each other than the other views do",
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

  /// Lenses whose squares fall with thin prism terms, by more than `leastGain` too.
  std::vector<Finding> lensFindings(double leastGain) const {
    constexpr double mostRatio = 1.05;
    std::vector<Finding> findings;
    for (int device = 0; device < deviceCount(); ++device) {
      if (bundle_.devices[static_cast<std::size_t>(device)].freeParameters.size() != 9) {
        continue; // held, or with prism terms already
      }
      Bundle prism = bundle_;
      auto& free = prism.devices[static_cast<std::size_t>(device)].freeParameters;
      free.insert(free.end(), {12, 13, 14, 15});
      double const squares = squaresOf(bundle_, transfersOf(bundle_)).total();
      double const gain = gainOf(bundle_, prism);
      double const ratio = squares / std::max(squares - gain, 1e-300);
      // Where other faults are left, prism terms would take up a part of those.
      constexpr double mostLeft = 1.2;
      bool const isExplained = adjustment_.s0 < mostLeft * std::sqrt(ratio);
      if (ratio > mostRatio && gain > leastGain && isExplained) {
        findings.push_back(
            {FindingCause::LensModel, -1, device, ratio, mostRatio,
             "The lens of " + deviceName(device) +
                 " needs more than five coefficients: thin prism terms lower the squares by the "
                 "factor " +
                 rounded(ratio, 2),
             adviceOf(FindingCause::LensModel), false});
      }
    }
    // The lens that gains most: the other one takes its errors up in part.
    auto const most = std::max_element(findings.begin(), findings.end(),
                                       [](Finding const& a, Finding const& b) { return a.value < b.value; });
    return most == findings.end() ? findings : std::vector<Finding>{*most};
  }

  /// What the places and tilts of the target leave to be desired.
  void findPoorViews() {
    constexpr double leastCoverage[] = {0.6, 0.5};
    for (int device = 0; device < deviceCount(); ++device) {
      cv::Size const size = adjustment_.models[static_cast<std::size_t>(device)].getResolution();
      double const share = coverageOf(views_, device, size);
      if (share < leastCoverage[device] && isFree(device)) {
        add(FindingCause::Coverage, -1, device, share, leastCoverage[device],
            "The dots fill " + rounded(100 * share, 0) + " % of the image of " + deviceName(device), false);
      }
    }
    constexpr double leastTilt = 25;
    double const tilt = greatestTiltOf(adjustment_.poses);
    if (tilt < leastTilt && (isFree(0) || (deviceCount() > 1 && isFree(1)))) {
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
              named(views_[i], static_cast<int>(i)) + ": shows the same pose as " +
                  named(views_[j], static_cast<int>(j)) + ", to " + rounded(motion, 1) + " px",
              false);
        }
      }
    }
  }

  std::string deviceName(int device) const {
    if (deviceCount() == 1) {
      return "the camera";
    }
    return adjustment_.isRead ? (device == 0 ? "the camera" : "the projector")
                              : "camera " + std::to_string(device);
  }

  int deviceCount() const { return static_cast<int>(adjustment_.models.size()); }
  bool isFree(int device) const {
    return !bundle_.devices[static_cast<std::size_t>(device)].freeParameters.empty();
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

  /// How much better one device by itself fits with another lens from some view on. The noise that a
  /// projector's points have by themselves is more than the part that the camera's do not explain, so it is
  /// taken from neighbours anew.
  double lensChangeAlone(int device, std::size_t first) {
    std::vector<AdjustmentView> own;
    for (AdjustmentView const& view : views_) {
      own.push_back({view.name, view.objPnts, device == 0 ? view.points0 : view.points1, {}, view.sigmas});
    }
    try {
      AdjustmentSettings settings;
      settings.shape = AdjustmentSettings::Shape::Flat;
      Adjustment const alone =
          adjustCamera(own, adjustment_.models[static_cast<std::size_t>(device)], settings);
      double const noise = std::max(1.0, alone.s0 * alone.s0);
      return lensChangeAt(solvedBundle(own, alone), first) / noise;
    } catch (Exception const&) { // too few of its views show enough dots
      return 0;
    }
  }

  std::vector<AdjustmentView> const& views_;
  Adjustment const& adjustment_;
  Progress progress_;
  Bundle bundle_;
  std::vector<Finding> findings_;
  std::optional<WorstView> worst_;
};

} // namespace

std::vector<TransformDeviation> transformDeviations(std::vector<AdjustmentView> const& views,
                                                    Adjustment const& adjustment) {
  requireTogether(views, adjustment);
  return deviationsOf(solvedBundle(views, adjustment));
}

std::vector<Finding> diagnose(std::vector<AdjustmentView> const& views, Adjustment const& adjustment,
                              Observer* observer) {
  return Diagnosis(views, adjustment, observer).run();
}

} // namespace vorn::mv
