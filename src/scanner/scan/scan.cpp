// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan.hpp>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <utility>

#include <opencv2/imgproc.hpp>

#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/scanner_type.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>
#include <vorn/mv/sl/smooth_map.hpp>

#include "core/error.hpp"
#include "core/pieces.hpp"
#include "scanner/findings/sequence_doubts.hpp"
#include "scanner/scan/decoded_sizes.hpp"
#include "scanner/scan/placement_doubts.hpp"
#include "scanner/scan/scan_noise.hpp"
#include "scanner/scan/scan_points.hpp"
#include "scanner/scanner_access.hpp"
#include "sl/decode/grey_stack.hpp"
#include "sl/decode/staircase.hpp"
#include "sl/decode/texture.hpp"

namespace vorn::mv {

namespace {

/// @throws Exception for a device whose image covers an angle that none covers
void checkView(CameraModel const& model, char const* device) {
  constexpr double narrowest = 1.0;
  constexpr double widest = 170.0;
  double const focal = model.getK().at<double>(0, 0);
  double const angle = 2.0 * std::atan(0.5 * model.getResolution().width / focal) * 180.0 / CV_PI;
  if (!(angle >= narrowest && angle <= widest)) {
    std::ostringstream message;
    message << "The scanner's " << device << " sees " << angle << " degrees, which must be " << narrowest
            << " to " << widest << ": its calibration cannot be right";
    throw error(message.str(), "scan");
  }
}

void checkScanner(Sl3dScanner const& scanner) {
  if (!scanner.isCalibrated()) {
    throw error("The scanner is not calibrated: it has no models with an error below half a pixel", "scan");
  }
  ScannerAccess::requireTransform(scanner, "scan");
  checkView(scanner.getCameraModel(), "camera");
  checkView(scanner.getProjectorModel(), "projector");
  double const base = cv::norm(math::getT3(scanner.getTransform()));
  constexpr double leastBase = 1e-3; // mm: no scanner is that small
  if (!(base >= leastBase) || !std::isfinite(base)) {
    std::ostringstream message;
    message << "The scanner's camera and projector are " << base << " mm apart, which must be " << leastBase
            << " or more: its transform (\"Hpc\") is missing or wrong";
    throw error(message.str(), "scan");
  }
}

constexpr char const* makingCloud = "making the cloud";
/// Rows of a 12-megapixel image that a pass takes a few milliseconds for.
constexpr std::size_t bandRows = 128;

/// Takes from the mask what triangulation dropped, and counts.
void finishMask(ScanResult& result, Progress const& progress) {
  ScanCounts& counts = result.counts;
  counts.pixels = result.map.total();
  auto const finishRow = [&](int y) {
    for (int x = 0; x < result.mask.cols; ++x) {
      uchar& reason = result.mask(y, x);
      if (result.map(y, x) >= 0.0F) {
        ++counts.decoded;
        bool const hasPoint = !std::isnan(result.xyz(y, x)[2]);
        reason = static_cast<uchar>(hasPoint ? PixelReason::Measured : PixelReason::NoPoint);
      }
      ++counts.reasons[reason];
    }
  };
  auto const rows = static_cast<std::size_t>(result.mask.rows);
  inPieces(rows, bandRows, progress, makingCloud, [&](std::size_t first, std::size_t end) {
    for (std::size_t y = first; y < end; ++y) {
      finishRow(static_cast<int>(y));
    }
  });
  counts.points = counts.of(PixelReason::Measured);
}

/// @param white empty for a cloud without texture
PointCloud cloudOf(ScanResult const& result, cv::Mat const& white, Progress const& progress) {
  cv::Mat_<cv::Vec3f> points(result.xyz.size());
  cv::Mat_<cv::Vec3b> texture(white.size());
  auto const rows = static_cast<std::size_t>(points.rows);
  inPieces(rows, bandRows, progress.part(0.0, 0.6), makingCloud, [&](std::size_t first, std::size_t end) {
    cv::Range const band(static_cast<int>(first), static_cast<int>(end));
    result.xyz.rowRange(band).copyTo(points.rowRange(band));
    if (!white.empty()) {
      cv::Mat part = texture.rowRange(band);
      cv::cvtColor(white.rowRange(band), part, cv::COLOR_GRAY2BGR);
    }
  });
  progress.at(makingCloud, 0.6);
  PointCloud cloud(points, true, cv::Mat_<cv::Vec3f>(), texture);
  cv::Mat_<uchar>& state = cloud.state();
  inPieces(rows, bandRows, progress.part(0.7, 0.8), makingCloud, [&](std::size_t first, std::size_t end) {
    constexpr int removedForGood = 255;
    cv::Range const band(static_cast<int>(first), static_cast<int>(end));
    state.rowRange(band).setTo(removedForGood,
                               result.mask.rowRange(band) != static_cast<int>(PixelReason::Measured));
  });
  progress.at(makingCloud, 0.8);
  cloud.calcBoundingBox();
  return cloud;
}

/// The points of a map in the frame of the scanner's pose, smoothed as its properties say.
cv::Mat_<cv::Vec3f> placedPoints(Sl3dScanner& scanner, cv::Mat_<float> const& map, Progress const& progress) {
  Sl3dScanner const& self = scanner;
  sl::TriangulationSetup const setup = ScannerAccess::triangulationSetup(scanner, progress.part(0.0, 0.4));
  cv::Mat_<cv::Vec3f> xyz = pointsInCamera(setup, map, coordinateOf(self), progress.part(0.4, 0.58));
  dropBeyond(xyz, farthestDepth(self), progress.part(0.58, 0.6));
  int const blurRadius = self["PointcloudBlurRadius"];
  if (blurRadius > 0) {
    blurMeasured(xyz, blurRadius, progress.part(0.6, 0.8));
  }
  if (self.getPose() != cv::Matx44d::eye()) {
    movePoints(xyz, self.getPose(), progress.part(0.8, 1.0));
  }
  return xyz;
}

/// Smooths the map along its surfaces as the settings say, and drops the sigma that was needed for it alone.
void smooth(ScanResult& result, ScanSettings const& settings, Progress const& progress) {
  if (settings.smoothRadius > 0) {
    PartObserver watch(progress);
    SmoothedMap smoothed = smoothMap(result.map, result.sigma, settings.smoothRadius, watch.ifWatched());
    result.map = std::move(smoothed.map);
    result.sigma = std::move(smoothed.sigma);
    result.counts.smoothed = smoothed.smoothed;
  }
  if (!settings.makeSigma) {
    result.sigma.release();
  }
}

/// Grey levels from the modulation: white is what one pixel in a hundred exceeds.
cv::Mat textureOf(cv::Mat_<float> const& modulation, cv::Mat_<uchar> const& mask) {
  std::vector<float> values;
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      if (mask(y, x) == static_cast<uchar>(PixelReason::Measured)) {
        values.push_back(modulation(y, x));
      }
    }
  }
  cv::Mat texture = cv::Mat::zeros(mask.size(), CV_8UC1);
  if (!values.empty()) {
    constexpr double brightest = 0.99;
    auto const at =
        values.begin() + static_cast<std::ptrdiff_t>(brightest * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    modulation.convertTo(texture, CV_8U, *at > 0.0F ? 255.0 / static_cast<double>(*at) : 0.0);
  }
  return texture;
}

/// Planes beyond those that the projector's stripes need show nothing that is known: `decode` reads them as
/// bits of words that no stripe has.
/// @throws Exception with both counts
void requireOwnImages(Sl3dScanner const& scanner, std::size_t count) {
  sl::CodedAxis const axis = ScannerAccess::codedAxis(scanner);
  int const planes = axis.code.wordBits(axis.resolution) - 1;
  auto const most = static_cast<std::size_t>(sl::StripeCode::images(std::max(1, planes)));
  if (axis.resolution >= axis.code.period && count > most) {
    bool const isColumn = coordinateOf(scanner) == MapCoordinate::Column;
    throw error("There are " + std::to_string(count) + " images, but the sequence of " +
                    std::to_string(axis.resolution) + (isColumn ? " columns" : " rows") + " has " +
                    std::to_string(most),
                "scan");
  }
}

} // namespace

void ScannerAccess::requireScannable(Sl3dScanner const& scanner, cv::Size const& images) {
  Library::assertValid();
  checkScanner(scanner);
  cv::Size const expected = scanner.getCameraModel().getResolution();
  if (!images.empty() && images != expected) {
    throw error("The images are " + sizeText(images) + ", but the scanner's camera has " + sizeText(expected),
                "scan");
  }
}

void ScanSettings::check() const {
  if (!std::isfinite(noise) || noise < 0.0) {
    std::ostringstream message;
    message << "ScanSettings: noise is " << noise << ", but must be a number of 0 or more";
    throw error(message.str(), "scan");
  }
  if (smoothRadius < 0 || smoothRadius > 5) {
    throw error("ScanSettings: smoothRadius is " + std::to_string(smoothRadius) + ", but must be 0 to 5",
                "scan");
  }
  if (!std::isfinite(whiteLevel) || whiteLevel < 0.0) {
    std::ostringstream message;
    message << "ScanSettings: whiteLevel is " << whiteLevel << ", but must be a number of 0 or more";
    throw error(message.str(), "scan");
  }
}

ScanResult scan(Sl3dScanner& scanner, std::vector<cv::Mat> const& images, ScanSettings const& settings,
                Observer* observer) {
  settings.check();
  ScannerAccess::requireScannable(scanner, images.empty() ? cv::Size() : images.front().size());
  requireOwnImages(scanner, images.size());
  Progress const progress(observer);
  ScanResult result;
  Timer timer;
  sl::GreyStack const stack = sl::greyStack(images, settings.whiteLevel);
  result.whiteLevel = stack.white * stack.unit;
  sl::DecodedScan const decoded =
      ScannerAccess::decode(scanner, stack, sl::ReasonMap::Make, progress.part(0.0, 0.59));
  PatternAxis const axis =
      coordinateOf(scanner) == MapCoordinate::Column ? PatternAxis::Column : PatternAxis::Row;
  int const maxGrayLevel = std::as_const(scanner)["MaxGrayLevel"];
  result.doubts = sequenceDoubts(stack, axis, ScannerAccess::codedAxis(scanner), maxGrayLevel);
  result.map = decoded.coordinates;
  result.mask = decoded.reasons;
  if (settings.correctsStaircase) {
    result.staircase = sl::removeStaircase(result.map, nullptr, progress.part(0.59, 0.6));
  }
  if (settings.makeSigma || settings.smoothRadius > 0) {
    NoiseModel const noise = settings.noise > 0.0 ? NoiseModel(settings.noise, stack)
                                                  : NoiseModel(stack, result.map, progress.part(0.6, 0.61));
    int const period = ScannerAccess::codedAxis(scanner).code.period;
    result.sigma = sigmaOf(stack, result.map, noise, period, progress.part(0.61, 0.63));
  }
  smooth(result, settings, progress.part(0.63, 0.65));
  result.times.decode = timer.toc();

  timer.tic();
  result.xyz = placedPoints(scanner, result.map, progress.part(0.65, 0.87));
  result.times.triangulate = timer.toc();

  timer.tic();
  if (settings.makeModulation) {
    result.modulation = modulationOf(stack, progress.part(0.87, 0.92));
  }
  finishMask(result, progress.part(0.92, 0.95));
  if (result.doubts.empty()) { // what is wrong with places comes of wrong images
    result.doubts = placementDoubts(scanner, result);
  }
  if (result.counts.points == 0) { // what else is said of such images may come of it
    result.doubts.insert(result.doubts.begin(), emptyDoubt(images, result.whiteLevel, result, axis));
  }
  progress.at(makingCloud, 0.95);
  cv::Mat const white = settings.makeTexture ? sl::whiteLevel(stack) : cv::Mat();
  result.cloud = cloudOf(result, white, progress.part(0.95, 1.0));
  progress.at(makingCloud, 1.0);
  result.times.rest = timer.toc();
  return result;
}

ScanResult scanDecoded(Sl3dScanner& scanner, DecodedPatterns const& decoded, ScanSettings const& settings,
                       Observer* observer) {
  settings.check();
  ScannerAccess::requireScannable(scanner, cv::Size());
  bool const isColumn = coordinateOf(scanner) == MapCoordinate::Column;
  cv::Mat_<float> const& map = isColumn ? decoded.column : decoded.row;
  if (map.empty()) {
    throw error(std::string("The patterns code no ") + (isColumn ? "columns" : "rows") +
                    ", which the scanner's \"ScannerType\" asks for",
                "scan");
  }
  ScannerAccess::requireScannable(scanner, map.size());
  requireDecodedSizes(decoded);
  Progress const progress(observer);
  ScanResult result;
  Timer timer;
  result.map = map.clone();
  result.mask = decoded.mask.clone();
  result.staircase = isColumn ? decoded.staircaseColumn : decoded.staircaseRow;
  if (settings.makeSigma || settings.smoothRadius > 0) {
    result.sigma = (isColumn ? decoded.sigmaColumn : decoded.sigmaRow).clone();
  }
  smooth(result, settings, progress.part(0.0, 0.2));
  result.xyz = placedPoints(scanner, result.map, progress.part(0.2, 0.7));
  result.times.triangulate = timer.toc();
  timer.tic();
  if (settings.makeModulation) {
    result.modulation = decoded.modulation.clone();
  }
  finishMask(result, progress.part(0.7, 0.8));
  cv::Mat const white = settings.makeTexture ? textureOf(decoded.modulation, result.mask) : cv::Mat();
  result.cloud = cloudOf(result, white, progress.part(0.8, 1.0));
  progress.at(makingCloud, 1.0);
  result.times.rest = timer.toc();
  return result;
}

ScanResult scan(Sl3dScanner const& scanner, std::vector<cv::Mat> const& images, ScanSettings const& settings,
                Observer* observer) {
  Sl3dScanner own = scanner;
  return scan(own, images, settings, observer);
}

} // namespace vorn::mv
