// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/pattern_scanner.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <utility>

#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_model.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "core/pieces.hpp"
#include "scanner/calibration/scanner_views.hpp"
#include "scanner/scan/decoded_sizes.hpp"
#include "scanner/scan/epipolar_residuals.hpp"
#include "scanner/scanner_access.hpp"

namespace vorn::mv {

namespace {

/// @throws Exception for a set from which a projector cannot be calibrated
void requireBothAxes(PatternSet const& set) {
  for (PatternAxis const axis : {PatternAxis::Column, PatternAxis::Row}) {
    if (!set.codes(axis)) {
      throw calibrationFailure(std::string("the pattern set codes no ") +
                               (axis == PatternAxis::Column ? "columns" : "rows") +
                               ", and a calibration takes both coordinates");
    }
  }
}

/// The target under plain light.
cv::Mat targetImage(PatternView const& view, PatternSet const& set) {
  if (!view.target.empty()) {
    return view.target;
  }
  std::size_t white = set.images.size();
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    if (set.images[i].role == PatternRole::White &&
        (white == set.images.size() || set.images[i].exposure > set.images[white].exposure)) {
      white = i;
    }
  }
  if (white >= view.images.size()) {
    throw calibrationFailure("there is no target image, and the pattern set has no white one in its place");
  }
  return view.images[white];
}

constexpr std::size_t stepsPerView = 3;

void measure(PatternView const& view, PatternSet const& set, DecodeSettings decode,
             CalibrationSettings const& settings, MeasuredView& measured, ViewSteps& steps) {
  requireBothAxes(set);
  steps.begin("detecting targets");
  cv::Mat const target = targetImage(view, set);
  findTarget(measured, target, "target image", settings, steps.now());
  if (!view.images.empty() && view.images.front().size() != target.size()) {
    throw calibrationFailure("the images of the patterns are " + sizeText(view.images.front().size()) +
                             ", the target image " + sizeText(target.size()));
  }
  steps.begin("decoding patterns");
  // On black ground each dot is a piece of its own.
  constexpr int smallestDot = 20;
  decode.minSegmentSize = std::min(decode.minSegmentSize, smallestDot);
  decode.whiteLevel = decode.whiteLevel > 0.0 ? decode.whiteLevel : settings.whiteLevel;
  PartObserver observer(steps.now());
  DecodedPatterns const decoded = decode_patterns(set, view.images, decode, observer.ifWatched());
  if (!decoded.doubts.empty()) {
    throw calibrationFailure(decoded.doubts.front().text);
  }
  measured.result.devices.push_back(
      projectorPoints(measured.result.devices[0], {target, decoded.column, decoded.row}, settings));
}

/// The projector of a view's set, which is the scanner's.
void requireProjector(PatternSet const& set, cv::Size const& projector) {
  if (set.projector != projector) {
    throw calibrationFailure("its pattern set is for a projector of " + sizeText(set.projector) +
                             " pixels, not of " + sizeText(projector));
  }
}

/// Rejects pixels whose coordinates contradict each other.
EpipolarFigures judge(EpipolarResiduals const& residuals, double most, DecodedPatterns& decoded) {
  constexpr float deviations = 5.0F;
  EpipolarFigures figures;
  std::vector<float> kept;
  double squares = 0.0;
  std::vector<float> sigmas;
  auto const limit = static_cast<float>(most);
  for (int y = 0; y < residuals.distance.rows; ++y) {
    for (int x = 0; x < residuals.distance.cols; ++x) {
      float const distance = residuals.distance(y, x);
      if (std::isnan(distance)) {
        continue;
      }
      ++figures.pixels;
      // 0 where it is not known
      float const sigma = residuals.sigma.empty() ? 0.0F : std::fmax(residuals.sigma(y, x), 0.0F);
      if (std::fabs(distance) > limit + deviations * sigma) {
        ++figures.rejected;
        decoded.column(y, x) = -1.0F;
        decoded.row(y, x) = -1.0F;
        decoded.mask(y, x) = static_cast<uchar>(PixelReason::Contradiction);
        continue;
      }
      kept.push_back(distance);
      squares += static_cast<double>(distance) * static_cast<double>(distance);
      sigmas.push_back(sigma);
    }
  }
  if (!kept.empty()) {
    figures.rms = std::sqrt(squares / static_cast<double>(kept.size()));
    figures.foretold = static_cast<double>(medianAmong(sigmas));
    float const median = medianAmong(kept);
    figures.median = static_cast<double>(median);
    std::transform(kept.begin(), kept.end(), kept.begin(), [&](float v) { return std::fabs(v - median); });
    constexpr double gaussianSigma = 1.4826;
    figures.deviation = gaussianSigma * static_cast<double>(medianAmong(kept));
  }
  return figures;
}

} // namespace

void PatternScanSettings::check() const {
  decode.check();
  scan.check();
  if (!(mostEpipolar > 0.0)) {
    std::ostringstream message;
    message << "PatternScanSettings: mostEpipolar is " << mostEpipolar << ", but must be above 0";
    throw error(message.str(), "scan");
  }
}

PatternScanner::PatternScanner(PatternSet set, PatternScanSettings const& settings)
    : PatternScanner(std::move(set), Sl3dScanner(), settings) {}

PatternScanner::PatternScanner(PatternSet set, Sl3dScanner scanner, PatternScanSettings const& settings)
    : set_(std::move(set)), settings_(settings), scanner_(std::move(scanner)) {
  settings_.check();
  set_.validate();
}

ScannerCalibration PatternScanner::calibrate(std::vector<std::string> const& names,
                                             PatternViewSource const& view,
                                             CalibrationSettings const& settings, Observer* observer) {
  CalibrationSettings own = settings;
  if (own.projector.empty()) {
    own.projector = set_.projector;
  }
  requireProjector(set_, own.projector);
  ScannerViews views;
  views.names = names;
  views.stepsPerView = stepsPerView;
  views.measure = [&](std::size_t number, MeasuredView& measured, ViewSteps& steps) {
    steps.begin("reading views");
    PatternView const given = view(number);
    PatternSet const& set = given.set ? *given.set : set_;
    requireProjector(set, own.projector);
    measure(given, set, settings_.decode, own, measured, steps);
  };
  ScannerCalibration calibration = calibrateScanner(views, own, observer);
  Sl3dScanner const& found = calibration.object;
  scanner_.getCameraModel() = found.getCameraModel();
  scanner_.getProjectorModel() = found.getProjectorModel();
  scanner_.setTransform(found.getTransform());
  CalibrationCovariance const known = found.getCovariance();
  if (!known.isEmpty()) {
    scanner_.setCovariance(known);
  }
  return calibration;
}

ScannerCalibration PatternScanner::calibrate(std::vector<PatternView> const& views,
                                             CalibrationSettings const& settings, Observer* observer) {
  return calibrate(
      namesOf(views), [&](std::size_t number) { return views[number]; }, settings, observer);
}

DecodedPatterns PatternScanner::decode(std::vector<cv::Mat> const& images, Observer* observer) const {
  DecodeSettings decode = settings_.decode;
  decode.whiteLevel = decode.whiteLevel > 0.0 ? decode.whiteLevel : settings_.scan.whiteLevel;
  return decode_patterns(set_, images, decode, observer);
}

PatternScanResult PatternScanner::triangulate(DecodedPatterns const& decoded, Observer* observer) {
  Progress const progress(observer);
  PatternScanResult result;
  DecodedPatterns judged = decoded;
  if (!decoded.column.empty() && !decoded.row.empty()) {
    ScannerAccess::requireScannable(scanner_, decoded.column.size());
    requireDecodedSizes(decoded);
    judged.column = decoded.column.clone();
    judged.row = decoded.row.clone();
    judged.mask = decoded.mask.clone();
    sl::TriangulationSetup const setup = ScannerAccess::triangulationSetup(scanner_, progress.part(0.0, 0.2));
    Sl3dScanner const& self = scanner_;
    EpipolarResiduals const residuals = epipolarResiduals(
        setup, cv::Matx33d(self.getProjectorModel().getK()),
        {judged.column, judged.row, decoded.sigmaColumn, decoded.sigmaRow}, progress.part(0.2, 0.3));
    result.agreement = judge(residuals, settings_.mostEpipolar, judged);
    result.epipolar = residuals.distance;
  }
  PartObserver part(progress.part(0.3, 1.0));
  static_cast<ScanResult&>(result) = scanDecoded(scanner_, judged, settings_.scan, part.ifWatched());
  result.noise = decoded.noise;
  result.whiteLevel = decoded.whiteLevel;
  result.fringes = decoded.fringes;
  result.doubts = decoded.doubts;
  return result;
}

PatternScanResult PatternScanner::scan(std::vector<cv::Mat> const& images, Observer* observer) {
  Progress const progress(observer);
  PartObserver first(progress.part(0.0, 0.7));
  Timer timer;
  DecodedPatterns const decoded = decode(images, first.ifWatched());
  double const time = timer.toc();
  PartObserver second(progress.part(0.7, 1.0));
  PatternScanResult result = triangulate(decoded, second.ifWatched());
  result.times.decode = time;
  return result;
}

} // namespace vorn::mv
