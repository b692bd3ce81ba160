// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan_laser.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <set>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/imaging/white_level.hpp>

#include "calib/laser/laser_color_search.hpp"
#include "calib/laser/laser_search.hpp"
#include "core/error.hpp"
#include "core/pieces.hpp"
#include "scanner/calibration/target_views.hpp"
#include "scanner/side_by_side.hpp"

namespace vorn::mv {

namespace {

constexpr char const* job = "scanLaser";

/// How far the scene has moved since the first image, image by image.
std::vector<cv::Vec3d> motionsOf(Stage const& stage, std::size_t images, std::size_t planes) {
  std::size_t const positions = images / planes;
  std::vector<cv::Vec3d> result(images);
  if (positions == 1 && stage.places.empty()) {
    return result;
  }
  if (!cv::checkRange(stage.step) || cv::norm(stage.step) == 0) {
    throw error("The stage's step must be three numbers that differ from 0, 0, 0", job);
  }
  if (stage.places.empty()) {
    for (std::size_t i = 0; i < images; ++i) {
      std::size_t const position = i / planes;
      result[i] = static_cast<double>(position) * stage.step;
    }
    return result;
  }
  if (stage.places.size() != positions && stage.places.size() != images) {
    throw error("The stage has " + std::to_string(stage.places.size()) + " places, but there are " +
                    std::to_string(positions) + " positions of the stage",
                job);
  }
  std::size_t const imagesPerPlace = images / stage.places.size();
  for (std::size_t i = 0; i < images; ++i) {
    result[i] = (stage.places[i / imagesPerPlace] - stage.places[0]) * cv::normalize(stage.step);
  }
  return result;
}

void checkScanner(LineScanner const& scanner, std::size_t images) {
  if (!scanner.isCalibrated()) {
    throw error("The line scanner is not calibrated: it has no camera with an error below half a pixel, or "
                "no laser planes",
                job);
  }
  std::size_t const planes = scanner.getPlanes().size();
  if (images == 0 || images % planes != 0) {
    throw error("There are " + std::to_string(images) + " images, no multiple of " + std::to_string(planes) +
                    " laser lines",
                job);
  }
}

void checkMotions(std::vector<cv::Vec3d> const& motions) {
  constexpr double farthest = 1e6; // mm, a kilometre
  for (cv::Vec3d const& motion : motions) {
    if (!(cv::norm(motion) <= farthest)) {
      throw error("The stage moves by more than a kilometre: its step or its places are not in mm", job);
    }
  }
}

/// The line of a plane runs across the image when the plane's normal points down it.
LaserLineOptions::Direction directionOf(Plane3f const& plane) {
  cv::Vec3f const& n = plane.normal();
  return std::abs(n[1]) > std::abs(n[0]) ? LaserLineOptions::Direction::PerColumn
                                         : LaserLineOptions::Direction::PerRow;
}

/// What one image gave.
struct ImagePoints {
  std::vector<cv::Vec3f> points;
  std::vector<float> sigma;
  std::size_t overexposed = 0;
  bool hasLine = false;
  bool isAmbiguous = false;
  double readTime = 0.0;
  double extractTime = 0.0;
  double triangulateTime = 0.0;
};

/// How all images of a scan are seen.
struct Sight {
  LaserColor color;
  double white;
};

ImagePoints pointsOf(LineScanner const& scanner, std::size_t number, LaserImageSource const& source,
                     LaserLineOptions options, Sight const& sight, cv::Vec3d const& moved,
                     Progress const& progress) {
  ImagePoints result;
  Timer timer;
  cv::Mat const image = source(number);
  result.readTime = timer.toc();
  cv::Size const expected = scanner.getCameraModel().getResolution();
  if (image.size() != expected) {
    throw error("Image " + std::to_string(number) + " is " + sizeText(image.size()) +
                    ", but the scanner's camera has " + sizeText(expected),
                job);
  }
  std::size_t const plane = number % scanner.getPlanes().size();
  timer.tic();
  options.direction = directionOf(scanner.getPlanes()[plane]);
  FoundLine const found = findLaserLine(laserGrey(image, sight.color, sight.white), options, progress);
  std::vector<cv::Point2f> line;
  for (LaserPeak const& peak : found.peaks) {
    line.push_back(peak.point);
  }
  result.hasLine = !line.empty();
  result.isAmbiguous = !found.reason.empty();
  result.extractTime = timer.toc();

  timer.tic();
  std::vector<cv::Point3f> const points = scanner.triangulate(line, static_cast<int>(plane), {});
  for (std::size_t i = 0; i < points.size(); ++i) {
    cv::Point3f const& p = points[i];
    if (std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) && p.z > 0) {
      result.points.emplace_back(cv::Vec3d(p.x, p.y, p.z) - moved);
      result.sigma.push_back(found.peaks[i].sigma);
      result.overexposed += found.peaks[i].isOverexposed ? 1 : 0;
    }
  }
  result.triangulateTime = timer.toc();
  return result;
}

/// Images of the same laser plane from which colour and white level are found: the first, one from the middle
/// and one from the end.
std::vector<cv::Mat> someImages(std::size_t count, std::size_t planes, LaserImageSource const& source) {
  std::size_t const positions = count / planes;
  std::set<std::size_t> const places{0, positions / 2, positions - 1};
  std::vector<cv::Mat> images;
  for (std::size_t const place : places) {
    cv::Mat const image = source(place * planes);
    if (!image.empty() && (images.empty() || image.type() == images[0].type())) {
      images.push_back(image);
    }
  }
  return images;
}

Sight sightOf(LineScanner const& scanner, std::size_t count, LaserImageSource const& source,
              LaserScanSettings const& settings) {
  constexpr double fullBytes = 255;
  Sight sight{settings.color.value_or(LaserColor()), settings.whiteLevel};
  cv::Mat const first = source(0);
  bool const isWhiteKnown = sight.white > 0 || first.depth() == CV_8U;
  bool const isColorKnown = settings.color || first.channels() != 3;
  if (isWhiteKnown && isColorKnown) {
    sight.white = sight.white > 0 ? sight.white : fullBytes;
    return sight;
  }
  std::vector<cv::Mat> const images = someImages(count, scanner.getPlanes().size(), source);
  sight.white = sight.white > 0 ? sight.white : findWhiteLevel(images);
  if (!isColorKnown) {
    sight.color = findLaserColor(images, settings.line, {directionOf(scanner.getPlanes()[0])}, sight.white);
  }
  return sight;
}

LaserScanResult joined(std::vector<ImagePoints> const& images) {
  LaserScanResult result;
  result.images = images.size();
  for (ImagePoints const& image : images) {
    result.points += image.points.size();
    result.emptyImages += image.hasLine ? 0 : 1;
    result.ambiguousImages += image.isAmbiguous ? 1 : 0;
    result.overexposed += image.overexposed;
    result.sigma.insert(result.sigma.end(), image.sigma.begin(), image.sigma.end());
    result.readTime += image.readTime;
    result.extractTime += image.extractTime;
    result.triangulateTime += image.triangulateTime;
  }
  if (result.points > 0) {
    cv::Mat_<cv::Vec3f> points(1, static_cast<int>(result.points));
    auto to = points.begin();
    for (ImagePoints const& image : images) {
      to = std::copy(image.points.begin(), image.points.end(), to);
    }
    result.cloud = PointCloud(points, false);
  }
  return result;
}

} // namespace

void LaserScanSettings::check() const {
  line.check();
  if (color) {
    color->check();
  }
  if (!std::isfinite(whiteLevel) || whiteLevel < 0) {
    throw error("LaserScanSettings: whiteLevel is " + std::to_string(whiteLevel) +
                    ", but must be a number of 0 or more",
                job);
  }
}

LaserScanResult scanLaser(LineScanner const& scanner, std::size_t imageCount, LaserImageSource const& image,
                          Stage const& stage, LaserScanSettings const& settings, Observer* observer) {
  settings.check();
  checkScanner(scanner, imageCount);
  std::vector<cv::Vec3d> const motions = motionsOf(stage, imageCount, scanner.getPlanes().size());
  checkMotions(motions);
  Progress const progress(observer);
  Sight const sight = sightOf(scanner, imageCount, image, settings);
  std::vector<ImagePoints> images(imageCount);
  std::atomic<std::size_t> done{0};
  forEachSideBySide(imageCount, [&](std::size_t i) {
    double const place = static_cast<double>(done++) / static_cast<double>(imageCount);
    progress.at("finding laser lines", place);
    images[i] = pointsOf(scanner, i, image, settings.line, sight, motions[i], progress.part(place, place));
  });
  progress.at("finding laser lines", 1.0);
  LaserScanResult result = joined(images);
  result.color = sight.color;
  result.whiteLevel = sight.white;
  return result;
}

LaserScanResult scanLaser(LineScanner const& scanner, std::vector<cv::Mat> const& images, Stage const& stage,
                          LaserScanSettings const& settings, Observer* observer) {
  return scanLaser(
      scanner, images.size(), [&](std::size_t i) { return images[i]; }, stage, settings, observer);
}

} // namespace vorn::mv
