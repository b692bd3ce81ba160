// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibrate_laser.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/laser_adjustment.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/imaging/white_level.hpp>

#include "calib/laser/laser_color_search.hpp"
#include "calib/laser/laser_grey.hpp"
#include "core/median.hpp"
#include "scanner/calibration/adjusted_views.hpp"
#include "scanner/calibration/laser_on_target.hpp"
#include "scanner/calibration/mirrored_views.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

namespace {

/// Fewer points of a line say too little about where it lies.
constexpr std::size_t leastLinePoints = 20;

/// Views of a line from which on its plane is overdetermined.
constexpr std::size_t leastLineViews = 3;

std::string missText(std::size_t line, std::size_t points) {
  return "laser line " + std::to_string(line) + " misses the target (" + std::to_string(points) +
         " points on it)";
}

void addRemark(CalibratedView& view, std::string const& text) {
  view.remark += (view.remark.empty() ? "" : ", ") + text;
}

/// In 8 bits.
cv::Mat greyOf(cv::Mat const& image) {
  cv::Mat grey = image;
  if (image.depth() == CV_64F) {
    image.convertTo(grey, CV_32F);
  }
  if (image.channels() == 3) {
    cv::cvtColor(grey, grey, cv::COLOR_BGR2GRAY);
  }
  if (grey.depth() != CV_8U) {
    constexpr double fullBytes = 255;
    cv::Mat bytes;
    grey.convertTo(bytes, CV_8U, fullBytes / findWhiteLevel({image}));
    return bytes;
  }
  return grey;
}

/// How a view's images of laser lines are seen.
struct Sight {
  LaserColor color;
  double white;
};

Sight sightOf(std::vector<cv::Mat> const& lines, CalibrationSettings const& settings) {
  double const white = settings.whiteLevel > 0 ? settings.whiteLevel : findWhiteLevel(lines);
  constexpr auto perColumn = LaserLineOptions::Direction::PerColumn;
  constexpr auto perRow = LaserLineOptions::Direction::PerRow;
  return {settings.laserColor ? *settings.laserColor
                              : findLaserColor(lines, settings.line, {perColumn, perRow}, white),
          white};
}

constexpr std::size_t stepsPerView = 3;

void measure(LaserView const& given, CalibrationSettings const& settings, MeasuredView& measured,
             ViewSteps& steps) {
  CalibratedView& view = measured.result;
  steps.begin("detecting targets");
  findTarget(measured, given.target, "target image", settings, steps.now());
  if (given.lines.empty()) {
    throw calibrationFailure("there are no images of laser lines");
  }
  steps.begin("finding laser lines");
  cv::Mat const target = greyOf(given.target);
  Sight const sight = sightOf(given.lines, settings);
  for (cv::Mat const& image : given.lines) {
    if (image.size() != target.size()) {
      throw calibrationFailure("the image of laser line " + std::to_string(view.lines.size()) + " is " +
                               sizeText(image.size()) + ", the target image " + sizeText(target.size()));
    }
    steps.now().at("finding laser lines", 0.0);
    LaserGrey const grey = laserGrey(image, sight.color, sight.white);
    ViewLine line = laserLineOnTarget(grey, target, view.devices[0], settings.line, steps.now());
    if (line.imgPnts.size() < leastLinePoints) {
      addRemark(view, missText(view.lines.size(), line.imgPnts.size()));
      line.imgPnts.clear();
    }
    view.lines.push_back(std::move(line));
  }
}

/// Leaves out views with another number of laser lines than the first that shows any, and those that all
/// lines miss. Returns the number of lines.
std::size_t agreeOnLines(std::vector<CalibratedView>& views) {
  std::size_t count = 0;
  for (CalibratedView& view : views) {
    if (!view.isUsed()) {
      continue;
    }
    if (count != 0 && view.lines.size() != count) {
      view.reason = "it has " + std::to_string(view.lines.size()) + " laser lines, the first view " +
                    std::to_string(count);
      continue;
    }
    count = view.lines.size();
    if (std::all_of(view.lines.begin(), view.lines.end(),
                    [](ViewLine const& line) { return line.imgPnts.empty(); })) {
      view.reason = view.remark;
    }
  }
  return count;
}

/// @throws Exception for a line that lies on the target in too few views
void requireLines(std::vector<CalibratedView> const& views, std::size_t lineCount) {
  for (std::size_t line = 0; line < lineCount; ++line) {
    ViewReasons missed;
    for (CalibratedView const& view : views) {
      if (!view.isUsed() || view.lines[line].imgPnts.empty()) {
        missed.emplace_back(view.name, view.isUsed() ? view.remark : view.reason);
      }
    }
    std::size_t const seen = views.size() - missed.size();
    if (seen < leastLineViews) {
      throw calibrationFailure("Laser line " + std::to_string(line) + " lies on the target in " +
                               std::to_string(seen) + " views, and its plane takes " +
                               std::to_string(leastLineViews) + "; " + groupedText(missed));
    }
  }
}

LineScannerCalibData lineData(std::vector<CalibratedView> const& views) {
  LineScannerCalibData data;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      std::vector<std::vector<cv::Point2f>> lines;
      for (ViewLine const& line : view.lines) {
        lines.push_back(line.imgPnts);
      }
      data.add(view.devices[0].imgPnts, view.devices[0].objPnts, lines);
    }
  }
  return data;
}

/// How far the points of each line lie from its plane in each used view, mm: [view][line][point].
using Distances = std::vector<std::vector<std::vector<double>>>;

/// @param poses of the used views
Distances distancesFromPlanes(LineScanner const& scanner, std::vector<CalibratedView> const& views,
                              std::vector<cv::Matx44d> const& poses) {
  Distances distances;
  for (CalibratedView const& view : views) {
    if (!view.isUsed()) {
      continue;
    }
    cv::Matx44d const& pose = poses[distances.size()];
    distances.emplace_back();
    for (std::size_t p = 0; p < scanner.getPlanes().size(); ++p) {
      auto const points =
          math::transformPoints(scanner.getCameraModel().calcObjectPoints(view.lines[p].imgPnts, pose), pose);
      distances.back().emplace_back();
      for (cv::Point3f const& point : points) {
        distances.back().back().push_back(scanner.getPlanes()[p].distance(point));
      }
    }
  }
  return distances;
}

/// Removes points that lie many times as far from their plane as the middle one: reflections and stray light.
/// Returns whether there were any.
bool dropStrayPoints(std::vector<CalibratedView>& views, Distances const& distances, std::size_t line) {
  std::vector<double> all;
  for (auto const& view : distances) {
    // A pixel beyond what the lens can see has no distance.
    std::copy_if(view[line].begin(), view[line].end(), std::back_inserter(all),
                 [](auto distance) { return std::isfinite(distance); });
  }
  if (all.empty()) {
    return false;
  }
  constexpr double mostRelativeDistance = 7.5; // five standard deviations of a normal distribution
  double const most = mostRelativeDistance * medianAmong(all);
  bool isAnyDropped = false;
  std::size_t number = 0;
  for (CalibratedView& view : views) {
    if (view.isUsed()) {
      std::vector<cv::Point2f> kept;
      for (std::size_t i = 0; i < view.lines[line].imgPnts.size(); ++i) {
        if (distances[number][line][i] <= most) {
          kept.push_back(view.lines[line].imgPnts[i]);
        }
      }
      isAnyDropped = isAnyDropped || kept.size() < view.lines[line].imgPnts.size();
      if (kept.empty() && !view.lines[line].imgPnts.empty()) {
        addRemark(view, "laser line " + std::to_string(line) +
                            " lies off the plane of the other views: target or laser moved");
      }
      view.lines[line].imgPnts = std::move(kept);
      ++number;
    }
  }
  return isAnyDropped;
}

void fillPlaneRms(std::vector<CalibratedView>& views, Distances const& distances) {
  std::size_t number = 0;
  for (CalibratedView& view : views) {
    if (view.isUsed()) {
      for (std::size_t p = 0; p < view.lines.size(); ++p) {
        auto const& ofLine = distances[number][p];
        view.lines[p].planeRms =
            ofLine.empty() ? 0.0 : cv::norm(ofLine) / std::sqrt(static_cast<double>(ofLine.size()));
      }
      ++number;
    }
  }
}

LineScanner calibrated(LineScannerCalibData& data, cv::Size const& size, std::size_t lineCount) {
  LineScanner scanner;
  scanner["PlaneCount"] = static_cast<int>(lineCount);
  CameraModel camera;
  camera.setResolution(size);
  scanner.setCameraModel(camera);
  scanner.calib(data);
  return scanner;
}

std::vector<PlaneReport> planeReports(std::vector<CalibratedView> const& views, std::size_t lineCount) {
  std::vector<PlaneReport> planes(lineCount);
  for (CalibratedView const& view : views) {
    for (std::size_t p = 0; view.isUsed() && p < lineCount; ++p) {
      ViewLine const& line = view.lines[p];
      planes[p].points += line.imgPnts.size();
      planes[p].rms += static_cast<double>(line.imgPnts.size()) * line.planeRms * line.planeRms;
    }
  }
  for (PlaneReport& plane : planes) {
    plane.rms = plane.points == 0 ? 0.0 : std::sqrt(plane.rms / static_cast<double>(plane.points));
  }
  return planes;
}

std::vector<cv::Matx44d> posesOf(LineScannerCalibData const& data) {
  std::vector<cv::Matx44d> poses;
  for (int i = 0; i < data.count(); ++i) {
    poses.push_back(data.getPose(i));
  }
  return poses;
}

/// The used views with their lines.
/// @param dots those of the used views
std::vector<LaserAdjustmentView> laserViews(std::vector<AdjustmentView> const& dots,
                                            std::vector<CalibratedView> const& views) {
  std::vector<LaserAdjustmentView> result;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      result.push_back({dots[result.size()], {}});
      for (ViewLine const& line : view.lines) {
        result.back().lines.push_back(line.imgPnts);
      }
    }
  }
  return result;
}

/// Gives the calibration the camera and the planes of an adjustment.
void takeLasers(LaserCalibration& calibration, LaserAdjustment const& lasers, Adjustment const& camera) {
  std::vector<Plane3f> planes;
  for (AdjustedPlane const& adjusted : lasers.planes) {
    planes.push_back(adjusted.plane);
  }
  calibration.object.setCameraModel(camera.models[0]);
  calibration.object.setPlanes(planes);
  fillPlaneRms(calibration.views, distancesFromPlanes(calibration.object, calibration.views, camera.poses));
}

/// Calibrates the used views, without stray points.
LineScanner calibrateOnce(std::vector<CalibratedView>& views, cv::Size const& size, std::size_t lineCount) {
  requireLines(views, lineCount);
  LineScannerCalibData data = lineData(views);
  LineScanner scanner = calibrated(data, size, lineCount);
  requireDifferentSides(data);
  Distances distances = distancesFromPlanes(scanner, views, posesOf(data));
  bool isAnyDropped = false;
  for (std::size_t line = 0; line < lineCount; ++line) {
    isAnyDropped = dropStrayPoints(views, distances, line) || isAnyDropped;
  }
  if (isAnyDropped) {
    requireLines(views, lineCount);
    data = lineData(views);
    scanner = calibrated(data, size, lineCount);
    distances = distancesFromPlanes(scanner, views, posesOf(data));
  }
  fillResiduals(views, 0, scanner.getCameraModel(), data);
  fillPlaneRms(views, distances);
  return scanner;
}

} // namespace

LaserCalibration calibrateLaser(std::vector<std::string> const& names, LaserViewSource const& view,
                                CalibrationSettings const& settings, Observer* observer) {
  Library::assertValid();
  settings.check();
  requireCameras(settings, 0);
  Progress const progress(observer);
  std::vector<MeasuredView> measured =
      measureViews(names, progress.part(0.0, 0.9), stepsPerView,
                   [&](std::size_t number, MeasuredView& result, ViewSteps& steps) {
                     steps.begin("reading views");
                     measure(view(number), settings, result, steps);
                   });
  LaserCalibration calibration;
  std::vector<cv::Size> sizes;
  calibration.views = agreeOnSizes(std::move(measured), {"target image"}, sizes);
  std::size_t const lineCount = agreeOnLines(calibration.views);
  auto const calibrateUsed = [&] {
    progress.at("calibrating", 0.9);
    calibration.object = calibrateOnce(calibration.views, sizes[0], lineCount);
  };
  calibrateViews(calibration.views, {"camera"}, settings, calibrateUsed);
  nameMirrored(calibration, {calibration.object.getCameraModel()});
  LaserAdjustment lasers;
  adjustViews(
      calibration, settings,
      {[&](std::vector<AdjustmentView> const& adjusted, AdjustmentSettings const& how, Observer* watch) {
         lasers = adjustLasers(laserViews(adjusted, calibration.views), calibration.object.getCameraModel(),
                               how, watch);
         return lasers.camera;
       },
       calibrateUsed,
       [&](Adjustment const& adjustment, std::vector<AdjustmentView> const& /*views*/) {
         takeLasers(calibration, lasers, adjustment);
       }},
      progress.part(0.95, 1.0));
  calibration.report.devices = {
      deviceReport("camera", calibration.object.getCameraModel(), calibration.views, 0)};
  calibration.report.planes = planeReports(calibration.views, lineCount);
  for (std::size_t p = 0; calibration.report.adjustment && p < lineCount; ++p) {
    calibration.report.planes[p].sigma = lasers.planes[p].sigma;
  }
  progress.at("calibrating", 1.0);
  return calibration;
}

LaserCalibration calibrateLaser(std::vector<LaserView> const& views, CalibrationSettings const& settings,
                                Observer* observer) {
  return calibrateLaser(
      namesOf(views), [&](std::size_t number) { return views[number]; }, settings, observer);
}

} // namespace vorn::mv
