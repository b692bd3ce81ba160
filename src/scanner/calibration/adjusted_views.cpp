// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/adjusted_views.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include "calib/camera_model_of.hpp"
#include "core/pieces.hpp"
#include "scanner/calibration/adjustment_views.hpp"
#include "scanner/calibration/board_words.hpp"
#include "scanner/calibration/taken_adjustment.hpp"
#include "scanner/calibration/target_views.hpp"
#include "scanner/calibration/turned_views.hpp"
#include "scanner/findings/image_consequences.hpp"

namespace vorn::mv {

namespace {

/// The view that is to be left out for what is found, and the finding; nothing when all may stay.
Finding const* leavingOf(std::vector<Finding> const& findings, std::size_t viewCount) {
  auto const isOfView = [](Finding const& finding) {
    return finding.cause == FindingCause::WrongView || finding.cause == FindingCause::ViewDisagrees ||
           finding.cause == FindingCause::Mirrored;
  };
  auto const mirrored = std::count_if(findings.begin(), findings.end(), [](Finding const& finding) {
    return finding.cause == FindingCause::Mirrored;
  });
  Finding const* worst = nullptr;
  for (Finding const& finding : findings) {
    bool const isEverywhere =
        finding.cause == FindingCause::Mirrored && 2 * static_cast<std::size_t>(mirrored) >= viewCount;
    bool const isWorse =
        worst == nullptr || (finding.cause == FindingCause::ViewDisagrees &&
                             worst->cause == FindingCause::ViewDisagrees && finding.value > worst->value);
    if (isOfView(finding) && finding.view >= 0 && !isEverywhere && isWorse) {
      worst = &finding;
    }
  }
  return worst;
}

/// Findings that count some views, as ones that count all.
/// @param numbers of those views among all
std::vector<Finding> counted(std::vector<Finding> findings, std::vector<int> const& numbers) {
  for (Finding& finding : findings) {
    finding.view = finding.view < 0 ? -1 : numbers[static_cast<std::size_t>(finding.view)];
  }
  return findings;
}

std::vector<int> usedNumbers(std::vector<CalibratedView> const& views) {
  std::vector<int> numbers;
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (views[i].isUsed()) {
      numbers.push_back(static_cast<int>(i));
    }
  }
  return numbers;
}

/// What is said of a view, without its name in front.
std::string reasonOf(Finding const& finding, CalibratedView const& view) {
  std::string const start = view.name + ": ";
  return finding.text.rfind(start, 0) == 0 ? finding.text.substr(start.size()) : finding.text;
}

void refuse(std::vector<Finding> const& findings) {
  for (Finding const& finding : findings) {
    if (finding.cause == FindingCause::DeviceMoved || finding.cause == FindingCause::FocusChanged) {
      throw calibrationFailure(finding.text + ". " + finding.advice);
    }
  }
}

/// With thin prism terms too: principal point, tangential and prism terms are much alike, and where nobody
/// says how many rounds to find them in it may take more than others need.
AdjustmentSettings withPrism(AdjustmentSettings settings) {
  constexpr int patient = 400;
  settings.lens = AdjustmentSettings::Lens::ThinPrism;
  bool const isUsual = settings.maxIterations == AdjustmentSettings().maxIterations;
  settings.maxIterations = isUsual ? patient : settings.maxIterations;
  return settings;
}

/// Settings under which dots that cannot be told apart have no shape of their own.
AdjustmentSettings possibleSettings(std::vector<CalibratedView> const& views,
                                    AdjustmentSettings const& wanted) {
  bool const isPrism = wanted.lens == AdjustmentSettings::Lens::ThinPrism;
  AdjustmentSettings settings = isPrism ? withPrism(wanted) : wanted;
  bool const isAnyUncounted = std::any_of(views.begin(), views.end(), [](CalibratedView const& view) {
    return view.isUsed() && !view.isCounted;
  });
  if (isAnyUncounted) {
    settings.shape = AdjustmentSettings::Shape::Flat;
  }
  return settings;
}

/// What views of so many devices, with or without figures of their images, cannot show.
/// @param isHeld whether the (first) camera's lens is held
std::vector<FindingCause> untestedCauses(std::vector<CalibratedView> const& views, std::size_t deviceCount,
                                         bool isHeld) {
  std::vector<FindingCause> causes;
  auto const isUsed = [](CalibratedView const& view) { return view.isUsed(); };
  if (!std::all_of(views.begin(), views.end(),
                   [](auto const& view) { return !view.isUsed() || view.isCounted; })) {
    causes.push_back(FindingCause::BentTarget);
  }
  constexpr auto fewest = 4; // of which one, or the last two, may differ from the others
  bool const areFew = std::count_if(views.begin(), views.end(), isUsed) < fewest;
  if (areFew) {
    causes.push_back(FindingCause::WrongView);
  }
  if (deviceCount < 2) {
    // Images that are mirrored one and all fit as well as right ones.
    causes.insert(causes.end(), {FindingCause::ViewDisagrees, FindingCause::Mirrored});
  }
  if (deviceCount < 2 || areFew) {
    causes.push_back(FindingCause::DeviceMoved);
  }
  if (areFew || (deviceCount < 2 && isHeld)) {
    causes.push_back(FindingCause::FocusChanged);
  }
  if (std::none_of(views.begin(), views.end(), [](auto const& view) { return view.figures.has_value(); })) {
    for (int cause = static_cast<int>(FindingCause::Gamma);
         cause <= static_cast<int>(FindingCause::MovedDuring); ++cause) {
      causes.push_back(static_cast<FindingCause>(cause));
    }
  }
  return causes;
}

/// An adjustment and what its residuals tell, of the views among those that were used.
struct Diagnosed {
  Adjustment adjustment;
  std::vector<Finding> findings;
};

/// Adjusts with thin prism terms too where the diagnosis asks for them. They stay when they leave smaller
/// residuals; what was found of the other terms alone may be gone then, but for the reason.
void extendLens(Diagnosed& diagnosed, std::vector<AdjustmentView> const& views,
                AdjustmentSettings const& settings, ViewAdjuster const& adjuster, Observer* observer) {
  auto const asking = std::find_if(diagnosed.findings.begin(), diagnosed.findings.end(),
                                   [](Finding const& f) { return f.cause == FindingCause::LensModel; });
  if (asking == diagnosed.findings.end()) {
    return;
  }
  Diagnosed extended;
  try {
    extended.adjustment = adjuster.adjust(views, withPrism(settings), observer);
    extended.findings = diagnose(views, extended.adjustment, observer);
  } catch (Cancelled const&) {
    throw;
  } catch (Exception const&) { // the views do not determine so many terms
    return;
  }
  if (extended.adjustment.s0 < diagnosed.adjustment.s0) {
    Finding reason = *asking;
    reason.text += "; the calibration has them";
    extended.findings.insert(extended.findings.begin(), std::move(reason));
    diagnosed = std::move(extended);
  }
}

/// @throws Exception when views fit much worse with a camera that is held than without
void requireFitting(Adjustment const& held, std::vector<AdjustmentView> const& views,
                    AdjustmentSettings settings, ViewAdjuster const& adjuster, Observer* observer) {
  constexpr double usual = 1.3;
  if ((!settings.holdCamera0 && !settings.holdCamera1) || held.s0 <= usual) {
    return;
  }
  settings.holdCamera0 = settings.holdCamera1 = false;
  double const free = adjuster.adjust(views, settings, observer).s0;
  constexpr double muchLess = 0.5;
  if (free < muchLess * held.s0) {
    std::ostringstream message;
    message.precision(3);
    message << "The camera that is held does not fit the views: with it residuals are " << held.s0
            << " times the noise, without " << free
            << ". Was its focus, zoom or image size another? Calibrate it with the views, without holding it";
    throw calibrationFailure(message.str());
  }
}

} // namespace

void requireCameras(CalibrationSettings const& settings, int count) {
  if ((settings.camera && count < 1) || (settings.camera1 && count < 2)) {
    throw calibrationFailure(count == 0
                                 ? "A laser line scanner is calibrated with its camera: none can be given"
                                 : "A second camera is given, and there is none to calibrate");
  }
}

CameraModel startOf(std::optional<CameraModel> const& given, CameraModel const& calibrated) {
  if (!given) {
    return calibrated;
  }
  cv::Size const size = calibrated.getResolution();
  if (given->getResolution() != cv::Size() && given->getResolution() != size) {
    throw calibrationFailure("The camera that was given is for images of " +
                             sizeText(given->getResolution()) + " pixels, and these have " + sizeText(size));
  }
  return cameraModelOf(given->getK(), given->getD(), size, given->getCalibError());
}

void diagnoseImagesOf(Calibration& calibration, CalibrationSettings const& settings) {
  std::vector<NamedFigures> figures;
  std::vector<int> numbers;
  for (std::size_t i = 0; i < calibration.views.size(); ++i) {
    if (calibration.views[i].figures) {
      figures.push_back({calibration.views[i].name, *calibration.views[i].figures});
      numbers.push_back(static_cast<int>(i));
    }
  }
  std::vector<Finding> const findings = counted(diagnoseImages(figures), numbers);
  calibration.report.findings.insert(calibration.report.findings.end(), findings.begin(), findings.end());
  auto const saysMoved = [](Finding const& finding) {
    return finding.cause == FindingCause::MovedBefore || finding.cause == FindingCause::MovedBetween ||
           finding.cause == FindingCause::MovedDuring;
  };
  auto const moved = static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), saysMoved));
  if (3 * moved > figures.size() || !std::isfinite(settings.outlierRatio)) {
    return;
  }
  for (Finding const& finding : findings) {
    CalibratedView* const view =
        saysMoved(finding) ? &calibration.views[static_cast<std::size_t>(finding.view)] : nullptr;
    if (view != nullptr && view->isUsed()) {
      view->reason = reasonOf(finding, *view);
    }
  }
}

/// As `adjustViews`; what it says speaks of dots.
void adjustUntilSound(Calibration& calibration, CalibrationSettings const& settings,
                      ViewAdjuster const& adjuster, Progress const& progress) {
  std::vector<Finding>& said = calibration.report.findings;
  while (settings.isAdjusted) {
    PartObserver observer(progress);
    AdjustmentSettings adjustmentSettings = possibleSettings(calibration.views, settings.adjustment);
    KnownTurns const known =
        countByShape(calibration, settings, adjustmentSettings, adjuster, observer.ifWatched());
    if (known.areChanged) {
      adjuster.recalibrate();
    }
    adjustmentSettings.shape = known.shape;
    calibration.report.shapeLimit = known.limit;
    std::vector<AdjustmentView> const views = adjustmentViews(calibration.views);
    Diagnosed diagnosed;
    try {
      diagnosed.adjustment = adjuster.adjust(views, adjustmentSettings, observer.ifWatched());
      requireFitting(diagnosed.adjustment, views, adjustmentSettings, adjuster, observer.ifWatched());
      diagnosed.findings = diagnose(views, diagnosed.adjustment, observer.ifWatched());
      if (settings.isLensExtended) {
        extendLens(diagnosed, views, adjustmentSettings, adjuster, observer.ifWatched());
      }
    } catch (Cancelled const&) {
      throw;
    } catch (Exception const& e) {
      if (settings.camera || settings.camera1) {
        throw;
      }
      calibration.report.notAdjusted = e.message();
      return;
    }
    std::vector<int> const numbers = usedNumbers(calibration.views);
    std::vector<Finding> findings = counted(std::move(diagnosed.findings), numbers);
    if (settings.isRefused) {
      refuse(findings);
    }
    Finding const* const leaving = leavingOf(findings, views.size());
    if (leaving == nullptr || !std::isfinite(settings.outlierRatio)) {
      explainWrongDots(said, findings, diagnosed.adjustment, numbers);
      if (calibration.report.shapeLimit.empty()) {
        calibration.report.shapeLimit = diagnosed.adjustment.shapeLimit;
      }
      takeAdjustment(calibration, views, std::move(diagnosed.adjustment), adjuster);
      said.insert(said.end(), findings.begin(), findings.end());
      calibration.report.untested = untestedCauses(
          calibration.views, calibration.report.adjustment->models.size(), settings.adjustment.holdCamera0);
      bool const isTakenFlat = calibration.report.adjustment->shape.kind == TargetShape::Kind::Flat &&
                               !calibration.report.shapeLimit.empty();
      if (isTakenFlat) {
        calibration.report.untested.insert(calibration.report.untested.begin(), FindingCause::BentTarget);
      }
      return;
    }
    CalibratedView& view = calibration.views[static_cast<std::size_t>(leaving->view)];
    view.reason = reasonOf(*leaving, view);
    Finding* const fault =
        leaving->cause == FindingCause::Mirrored ? nullptr : imageFaultOf(said, leaving->view);
    if (fault != nullptr) {
      addConsequence(*fault, view.reason);
      view.reason = reasonOf(*fault, view);
    } else {
      said.push_back(*leaving);
    }
    requireViews(calibration.views);
    adjuster.recalibrate();
  }
}

void adjustViews(Calibration& calibration, CalibrationSettings const& settings, ViewAdjuster const& adjuster,
                 Progress const& progress) {
  if (!hasCorners(settings)) {
    adjustUntilSound(calibration, settings, adjuster, progress);
    return;
  }
  try {
    adjustUntilSound(calibration, settings, adjuster, progress);
  } catch (Cancelled const&) {
    throw;
  } catch (Exception const& e) {
    throw calibrationFailure(withCorners(e.message()));
  }
  speakOfCorners(calibration);
}

} // namespace vorn::mv
