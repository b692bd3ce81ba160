// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <iterator>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "tools/calibration/calibration_session.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {

using mv::LaserLineOptions;
using mv::LaserPeak;

namespace {

/// Fewer points of a line say too little about where it lies.
constexpr std::size_t leastLinePoints = 20;

/// Views of a line from which on its plane is overdetermined.
constexpr std::size_t leastLineViews = 3;

struct Stripe {
  std::vector<LaserPeak> peaks;
  LaserLineOptions::Direction direction = LaserLineOptions::Direction::PerColumn;
};

/// The peaks along columns or along rows, whichever cut the line more often.
Stripe findStripe(cv::Mat const& image, LaserLineOptions options) {
  options.dropMoved = false; // the target's own image tells where its edges are, and spares what is between
  Stripe best;
  for (auto const direction : {LaserLineOptions::Direction::PerColumn, LaserLineOptions::Direction::PerRow}) {
    options.direction = direction;
    std::vector<LaserPeak> peaks = mv::extract_laser_peaks(image, options);
    if (peaks.size() > best.peaks.size()) {
      best = {std::move(peaks), direction};
    }
  }
  return best;
}

/// Where the target's plain view is even within a stripe's reach: a stripe across the rim of a dot is not
/// symmetric, and its place is off by up to its width.
cv::Mat evenGround(cv::Mat const& target, Stripe const& stripe) {
  std::vector<float> widths;
  for (LaserPeak const& peak : stripe.peaks) {
    widths.push_back(peak.width);
  }
  auto const middle = widths.begin() + static_cast<std::ptrdiff_t>(widths.size() / 2);
  std::nth_element(widths.begin(), middle, widths.end());
  constexpr float widthsToEnd = 3;
  int const across = 2 * cvCeil(widthsToEnd * *middle) + 1;
  constexpr int along = 3; // the lens's blur
  bool const isPerColumn = stripe.direction == LaserLineOptions::Direction::PerColumn;
  cv::Mat const reach(isPerColumn ? cv::Size(along, across) : cv::Size(across, along), CV_8U, cv::Scalar(1));

  cv::Mat smooth;
  cv::GaussianBlur(target, smooth, {3, 3}, 0);
  cv::Mat most;
  cv::Mat least;
  cv::dilate(smooth, most, reach);
  cv::erode(smooth, least, reach);
  // Uneven light counts as even: a gradient of this share over the reach moves a stripe of width w by
  // w^2 times its share a pixel, some hundredths of a pixel. Grey levels are for the noise.
  constexpr double unevenShare = 0.15;
  constexpr double unevenLevels = 4;
  cv::Mat limit;
  most.convertTo(limit, CV_8U, unevenShare, unevenLevels);
  return most - least <= limit;
}

/// The points of a laser line on the ground of the target, within the hull of its dots.
ViewLine pointsOnTarget(cv::Mat const& image, cv::Mat const& target, ViewPoints const& dots,
                        LaserLineOptions const& options) {
  Stripe const stripe = findStripe(image, options);
  ViewLine line;
  if (stripe.peaks.empty()) {
    return line;
  }
  std::vector<cv::Point2f> hull;
  cv::convexHull(dots.imgPnts, hull);
  cv::Mat const isEven = evenGround(target, stripe);
  for (LaserPeak const& peak : stripe.peaks) {
    cv::Point const pixel(cvRound(peak.point.x), cvRound(peak.point.y));
    if (isEven.at<uchar>(pixel) != 0 && cv::pointPolygonTest(hull, peak.point, false) >= 0) {
      line.imgPnts.push_back(peak.point);
    }
  }
  return line;
}

std::string missText(std::size_t line, std::size_t points) {
  return "laser line " + std::to_string(line) + " misses the target (" + std::to_string(points) +
         " points on it)";
}

void addRemark(TargetView& view, std::string const& text) {
  view.remark += (view.remark.empty() ? "" : ", ") + text;
}

/// What the views have in common and is known after the first of them.
struct Extents {
  cv::Size camera;
  std::size_t lines = 0;
};

void readView(std::filesystem::path const& pose, CalibrationSettings const& settings, Extents& extents,
              TargetView& view) {
  view.devices = {findTarget(pose / "target.png", settings.detector, extents.camera)};
  cv::Mat const target = readGrayImage((pose / "target.png").string());
  std::vector<cv::Mat> const images = readSequence(pose.string(), "line", readLaserImage);
  if (images.empty()) {
    throw calibrationFailure("there is no line_00.png");
  }
  if (images[0].size() != target.size()) {
    throw calibrationFailure("line_00.png is " + sizeText(images[0].size()) + ", target.png " +
                             sizeText(target.size()));
  }
  if (extents.lines != 0 && images.size() != extents.lines) {
    throw calibrationFailure("it has " + std::to_string(images.size()) + " laser lines, the first view " +
                             std::to_string(extents.lines));
  }
  for (cv::Mat const& image : images) {
    ViewLine line = pointsOnTarget(image, target, view.devices[0], settings.line);
    if (line.imgPnts.size() < leastLinePoints) {
      addRemark(view, missText(view.lines.size(), line.imgPnts.size()));
      line.imgPnts.clear();
    }
    view.lines.push_back(std::move(line));
  }
  extents.lines = images.size();
  if (std::all_of(view.lines.begin(), view.lines.end(),
                  [](ViewLine const& line) { return line.imgPnts.empty(); })) {
    throw calibrationFailure(view.remark);
  }
}

/// @throws Exception for a line that lies on the target in too few views
void requireLines(std::vector<TargetView> const& views, std::size_t lineCount) {
  for (std::size_t line = 0; line < lineCount; ++line) {
    ViewReasons missed;
    for (TargetView const& view : views) {
      if (!view.isUsed() || view.lines[line].imgPnts.empty()) {
        missed.emplace_back(view.name, view.isUsed() ? view.remark : view.rejection);
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

mv::LineScannerCalibData lineData(std::vector<TargetView> const& views) {
  mv::LineScannerCalibData data;
  for (TargetView const& view : views) {
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

Distances distancesFromPlanes(mv::LineScanner const& scanner, mv::LineScannerCalibData const& data) {
  Distances distances;
  for (int i = 0; i < data.count(); ++i) {
    distances.emplace_back();
    cv::Matx44d const& pose = data.getPose(i);
    for (std::size_t p = 0; p < scanner.getPlanes().size(); ++p) {
      auto const points = mv::math::transformPoints(
          scanner.getCameraModel().calcObjectPoints(data.getLinePntss(i)[p], pose), pose);
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
bool dropStrayPoints(std::vector<TargetView>& views, Distances const& distances, std::size_t line) {
  std::vector<double> all;
  for (auto const& view : distances) {
    // A pixel beyond what the lens can see has no distance.
    std::copy_if(view[line].begin(), view[line].end(), std::back_inserter(all),
                 [](auto distance) { return std::isfinite(distance); });
  }
  if (all.empty()) {
    return false;
  }
  auto const middle = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2);
  std::nth_element(all.begin(), middle, all.end());
  constexpr double mostRelativeDistance = 7.5; // five standard deviations of a normal distribution
  double const most = mostRelativeDistance * *middle;
  bool isAnyDropped = false;
  std::size_t number = 0;
  for (TargetView& view : views) {
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

void fillPlaneRms(std::vector<TargetView>& views, Distances const& distances) {
  std::size_t number = 0;
  for (TargetView& view : views) {
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

mv::LineScanner calibrated(mv::LineScannerCalibData& data, Extents const& extents) {
  mv::LineScanner scanner;
  scanner["PlaneCount"] = static_cast<int>(extents.lines);
  mv::CameraModel camera;
  camera.setResolution(extents.camera);
  scanner.setCameraModel(camera);
  scanner.calib(data);
  return scanner;
}

} // namespace

LaserCalibration calibrateLaser(std::string const& folder, CalibrationSettings const& settings) {
  LaserCalibration calibration;
  std::vector<TargetView>& views = calibration.views;
  Extents extents;
  views = readViews(folder, [&](std::filesystem::path const& pose, TargetView& view) {
    readView(pose, settings, extents, view);
  });
  calibrateViews(views, {"camera"}, [&] {
    requireLines(views, extents.lines);
    mv::LineScannerCalibData data = lineData(views);
    calibration.scanner = calibrated(data, extents);
    requireDifferentSides(data);
    Distances distances = distancesFromPlanes(calibration.scanner, data);
    bool isAnyDropped = false;
    for (std::size_t line = 0; line < extents.lines; ++line) {
      isAnyDropped = dropStrayPoints(views, distances, line) || isAnyDropped;
    }
    if (isAnyDropped) {
      requireLines(views, extents.lines);
      data = lineData(views);
      calibration.scanner = calibrated(data, extents);
      distances = distancesFromPlanes(calibration.scanner, data);
    }
    fillResiduals(views, 0, calibration.scanner.getCameraModel(), data);
    fillPlaneRms(views, distances);
  });
  calibration.devices = {{"camera", calibration.scanner.getCameraModel()}};
  return calibration;
}

} // namespace vorn::tools
