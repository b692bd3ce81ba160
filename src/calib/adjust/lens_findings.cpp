// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/lens_findings.hpp"

#include <algorithm>
#include <cmath>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/lens_changes.hpp"
#include "calib/adjust/view_statistics.hpp"

namespace vorn::mv {

namespace {

std::vector<Finding> mirroredByLens(SolvedViews const& solved, Bundle const& flat, double s0,
                                    std::function<double()> const& s0WithoutWorst, Progress const& progress) {
  constexpr double mostRatio = 0.6;
  auto const mirrored = bestMirroredImages(flat, solved.adjustment.models[0].getResolution(), progress);
  // Turned back, a view tells as much as the others; one of no pose does not.
  constexpr double mostMore = 1.15;
  if (!mirrored || !(mirrored->s0 < mostRatio * s0) || !(mirrored->s0 < mostMore * s0WithoutWorst())) {
    return {};
  }
  double const ratio = mirrored->s0 / s0;
  std::vector<Finding> findings;
  for (std::size_t const view : mirrored->views) {
    findings.push_back({FindingCause::Mirrored, static_cast<int>(view), 0, ratio, mostRatio,
                        solved.viewName(view) +
                            ": the image of the camera is mirrored, or the others are: turned back, the "
                            "residuals are " +
                            rounded(100 * ratio, 0) + " % of what they are",
                        adviceOf(FindingCause::Mirrored), true});
  }
  return findings;
}

std::optional<Finding> lensChange(SolvedViews const& solved, Bundle const& flat, double s0,
                                  std::function<double()> const& s0WithoutWorst, Progress const& progress) {
  constexpr double leastShare = 0.7;
  auto const change = bestLensChange(flat, progress);
  // A single view that does not fit is no change.
  constexpr double muchLess = 0.8;
  if (!change || !(change->s0 < solved.adjustment.s0) || s0WithoutWorst() < muchLess * change->s0) {
    return std::nullopt;
  }
  double const share = (s0 * s0 - change->s0 * change->s0) / (s0 * s0 - 1);
  if (!(share > leastShare)) {
    return std::nullopt;
  }
  return Finding{FindingCause::FocusChanged,
                 static_cast<int>(change->first),
                 0,
                 share,
                 leastShare,
                 "Focus or zoom of the camera changed before " + solved.viewName(change->first) +
                     ": its focal length went from " + rounded(change->before, 1) + " to " +
                     rounded(change->after, 1) + " px, which explains " + rounded(100 * share, 0) +
                     " % of what the residuals are beyond noise",
                 adviceOf(FindingCause::FocusChanged),
                 true};
}

/// How much better one device by itself fits with another lens from some view on. The noise that a
/// projector's points have by themselves is more than the part that the camera's do not explain, so it is
/// taken from neighbours anew.
double lensChangeAlone(SolvedViews const& solved, int device, std::size_t first) {
  std::vector<AdjustmentView> own;
  for (AdjustmentView const& view : solved.views) {
    own.push_back({view.name, view.objPnts, device == 0 ? view.points0 : view.points1, {}, view.sigmas});
  }
  try {
    AdjustmentSettings settings;
    settings.shape = AdjustmentSettings::Shape::Flat;
    Adjustment const alone =
        adjustCamera(own, solved.adjustment.models[static_cast<std::size_t>(device)], settings);
    double const noise = std::max(1.0, alone.s0 * alone.s0);
    return lensChangeAt(solvedBundle(own, alone), first) / noise;
  } catch (Exception const&) { // too few of its views show enough dots
    return 0;
  }
}

} // namespace

std::vector<Finding> singleLensFindings(SolvedViews const& solved,
                                        std::function<double()> const& s0WithoutWorst,
                                        Progress const& progress) {
  double const s0 = std::max(solved.adjustment.s0, solved.adjustment.shape.flatS0);
  if (solved.deviceCount() > 1 || !solved.isFree(0) || solved.views.size() < fewestViewsToTell ||
      !(s0 > mostChanceS0)) {
    return {};
  }
  try {
    Bundle const flat = flattened(solved.bundle, progress);
    std::vector<Finding> findings = mirroredByLens(solved, flat, s0, s0WithoutWorst, progress);
    if (findings.empty()) {
      if (auto change = lensChange(solved, flat, s0, s0WithoutWorst, progress)) {
        findings.push_back(std::move(*change));
      }
    }
    return findings;
  } catch (Cancelled const&) {
    throw;
  } catch (Exception const&) { // a flat target has no solution
    return {};
  }
}

std::optional<Finding> changedLens(SolvedViews const& solved, std::size_t first) {
  constexpr double mostChi2 = 30;
  int changed = 0;
  double greatest = 0;
  for (int device = 0; device < solved.deviceCount(); ++device) {
    double const chi2 = lensChangeAlone(solved, device, first);
    if (chi2 > greatest) {
      greatest = chi2;
      changed = device;
    }
  }
  if (!(greatest > mostChi2)) {
    return std::nullopt;
  }
  return Finding{FindingCause::FocusChanged,
                 static_cast<int>(first),
                 changed,
                 greatest,
                 mostChi2,
                 "Focus or zoom of " + solved.deviceName(changed) + " changed before " +
                     solved.viewName(first) + ": in its images alone, another lens from there on explains " +
                     rounded(greatest, 0) + " times as much as it would by chance",
                 adviceOf(FindingCause::FocusChanged),
                 true};
}

std::optional<Finding> lensModelFinding(SolvedViews const& solved, double leastGain) {
  constexpr double mostRatio = 1.05;
  std::optional<Finding> finding;
  for (int device = 0; device < solved.deviceCount(); ++device) {
    if (solved.bundle.devices[static_cast<std::size_t>(device)].freeParameters.size() != 9) {
      continue; // held, or with prism terms already
    }
    Bundle prism = solved.bundle;
    auto& free = prism.devices[static_cast<std::size_t>(device)].freeParameters;
    free.insert(free.end(), {12, 13, 14, 15});
    double const squares = squaresOf(solved.bundle, transfersOf(solved.bundle)).total();
    double const gain = gainOf(solved.bundle, prism);
    double const ratio = squares / std::max(squares - gain, 1e-300);
    // Where other faults are left, prism terms would take up a part of those.
    constexpr double mostLeft = 1.2;
    bool const isExplained = solved.adjustment.s0 < mostLeft * std::sqrt(ratio);
    // The lens that gains most: the other one takes its errors up in part.
    bool const isMost = !finding || ratio > finding->value;
    if (ratio > mostRatio && gain > leastGain && isExplained && isMost) {
      finding = Finding{FindingCause::LensModel,
                        -1,
                        device,
                        ratio,
                        mostRatio,
                        "The lens of " + solved.deviceName(device) +
                            " needs more than five coefficients: thin prism terms lower the squares by the "
                            "factor " +
                            rounded(ratio, 2),
                        adviceOf(FindingCause::LensModel),
                        false};
    }
  }
  return finding;
}

} // namespace vorn::mv
