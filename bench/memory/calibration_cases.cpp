// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/core.hpp>
#include <set>
#include <utility>
#include <vector>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/calib_pattern_type.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "memory_case.hpp"
#include "scan_inputs.hpp"
#include "sim/demo.hpp"
#include "sim/truth.hpp"
#include "target_inputs.hpp"

namespace vorn::bench {

namespace {

/// The last photograph that was asked for is kept.
cv::Mat const& keptPhoto(cv::Size const& size) {
  static cv::Mat image;
  if (image.size() != size) {
    image = targetPhoto(size, 30);
  }
  return image;
}

mv::CalibPatternDetector detector() {
  mv::CalibPatternDetector made;
  made["PatternDim"] = 15.0;
  made["MinDotArea"] = 20.0;
  made["MaxDotArea"] = 10000.0;
  return made;
}

double detect(cv::Mat const& image, mv::CalibPatternDetector const& detector) {
  return workingBytes(image.total(), [&] { return detector.detect(image).getKeyPoints(); });
}

double detectInColour(Sizes const& sizes) {
  cv::Mat colour;
  cv::merge(std::vector<cv::Mat>(3, keptPhoto(sizes.image)), colour);
  return detect(colour, detector());
}

double detectDark(Sizes const& sizes) {
  mv::CalibPatternDetector dark = detector();
  dark["PatternType"] = mv::CalibPatternType(mv::CalibPatternType::CircleGridGrayOnWhite);
  return detect(255 - keptPhoto(sizes.image), dark);
}

double detectByTemplate(Sizes const& sizes) {
  mv::CalibPatternDetector byTemplate = detector();
  byTemplate["QuadraticFit"] = true;
  return detect(keptPhoto(sizes.image), byTemplate);
}

/// The dots of the demonstration's target views.
struct Views {
  cv::Size resolution;
  mv::CameraCalibData data;
  std::size_t points = 0;
};

Views demoViews() {
  Views views;
  sim::Camera const camera = sim::demoRig().camera;
  views.resolution = camera.device.resolution();
  for (sim::Pose const& pose : sim::demoTargetPoses()) {
    std::vector<cv::Point2f> imgPnts, objPnts;
    for (sim::DotTruth const& dot : sim::dotTruth(sim::demoTarget(), pose, camera, nullptr)) {
      if (dot.camera) {
        imgPnts.emplace_back(*dot.camera);
        objPnts.emplace_back(dot.pattern);
      }
    }
    views.points += imgPnts.size();
    views.data.add(imgPnts, objPnts);
  }
  return views;
}

double calibrateCamera(Sizes const& /*sizes*/) {
  Views views = demoViews();
  mv::CameraModel model;
  model.setResolution(views.resolution);
  return workingBytes(views.points, [&] { model.calib(views.data, 100); });
}

/// An adjustment that tries every shape of the target, which takes the most.
double adjustCamera(Sizes const& /*sizes*/) {
  Views views = demoViews();
  std::vector<mv::AdjustmentView> adjusted;
  std::set<std::pair<float, float>> dots;
  for (int i = 0; i < views.data.count(); ++i) {
    adjusted.push_back({"view", views.data.getObjPnts(i), views.data.getImgPnts(i), {}, {}});
    for (cv::Point2f const& dot : adjusted.back().objPnts) {
      dots.insert({dot.x, dot.y});
    }
  }
  mv::CameraModel model;
  model.setResolution(views.resolution);
  mv::AdjustmentSettings settings;
  settings.shape = mv::AdjustmentSettings::Shape::Dots;
  return workingBytes(dots.size() * dots.size(),
                      [&] { static_cast<void>(mv::adjustCamera(adjusted, model, settings)); });
}

/// Calibrates two devices, whose pixels' rays are the larger part.
template <class Calibrate>
double calibratePair(Calibrate const& calibrate) {
  Views views = demoViews();
  mv::CameraCalibData otherData = views.data;
  return workingBytes(2 * static_cast<std::size_t>(views.resolution.area()),
                      [&] { calibrate(views.resolution, views.data, otherData); });
}

double calibrateScanner(Sizes const& /*sizes*/) {
  return calibratePair([](cv::Size const& size, mv::CameraCalibData& camera, mv::CameraCalibData& projector) {
    mv::Sl3dScanner scanner;
    scanner.getCameraModel().setResolution(size);
    scanner.getProjectorModel().setResolution(size);
    scanner.calib(camera, projector);
  });
}

double calibrateStereo(Sizes const& /*sizes*/) {
  return calibratePair([](cv::Size const& size, mv::CameraCalibData& data0, mv::CameraCalibData& data1) {
    mv::StereoCamera camera;
    camera.setResolution(size, size);
    camera.calib(data0, data1);
  });
}

double calibrateLineScanner(Sizes const& /*sizes*/) {
  Views const views = demoViews();
  mv::LineScannerCalibData data;
  std::size_t points = views.points;
  for (int view = 0; view < views.data.count(); ++view) {
    // Of no plane in space, which a calibration does not mind.
    std::vector<cv::Point2f> line;
    for (int y = 0; y < views.resolution.height; ++y) {
      line.emplace_back(0.4F * static_cast<float>(views.resolution.width), static_cast<float>(y));
    }
    points += line.size();
    data.add(views.data.getImgPnts(view), views.data.getObjPnts(view), {line});
  }
  mv::LineScanner scanner;
  mv::CameraModel model;
  model.setResolution(views.resolution);
  scanner.setCameraModel(model);
  return workingBytes(points, [&] { scanner.calib(data); });
}

/// Several stripes across the image or down it.
double extractLaser(Sizes const& sizes, mv::LaserLineOptions::Direction direction, bool inColour = false) {
  bool const runsDown = direction == mv::LaserLineOptions::Direction::PerRow;
  cv::Mat image(sizes.image, CV_8U, cv::Scalar(20));
  for (int i = 0; i < (runsDown ? image.rows : image.cols); ++i) {
    double const middle = 0.5 * (runsDown ? image.cols : image.rows) + 100 * std::sin(0.002 * i);
    for (int j = static_cast<int>(middle) - 10; j < middle + 10; ++j) {
      double const u = (j - middle) / 2;
      uchar& pixel = runsDown ? image.at<uchar>(i, j) : image.at<uchar>(j, i);
      pixel = cv::saturate_cast<uchar>(20 + 150 * std::exp(-0.5 * u * u));
    }
  }
  if (inColour) {
    cv::merge(std::vector<cv::Mat>(3, image), image);
  }
  mv::LaserLineOptions options;
  options.direction = direction;
  return workingBytes(image.total(), [&] { return mv::extract_laser_line(image, options); });
}

double triangulateLaser(Sizes const& sizes) {
  mv::LineScanner const scanner = lineScanner(sizes.image, {0, 0.6F, 0.8F});
  std::vector<cv::Point2f> line(static_cast<std::size_t>(sizes.image.area()) / 10, {100, 100});
  return workingBytes(line.size(), [&] { return scanner.triangulate(line, 0, {}); });
}

} // namespace

std::vector<MemoryCase> calibrationCases() {
  using Direction = mv::LaserLineOptions::Direction;
  return {
      {"`CalibPatternDetector::detect`",
       [](Sizes const& s) { return detect(keptPhoto(s.image), detector()); }},
      {"`CalibPatternDetector::detect`, noise alone",
       [](Sizes const& s) {
         cv::Mat image(s.image, CV_8U);
         cv::randu(image, 0, 256);
         return detect(image, detector());
       }},
      {"`CalibPatternDetector::detect`, in colour", detectInColour},
      {"`CalibPatternDetector::detect`, dark dots", detectDark},
      {"`CalibPatternDetector::detect`, \"QuadraticFit\" at a megapixel", detectByTemplate},
      {"`CameraModel::calib`, per dot of all views", calibrateCamera},
      {"`adjustCamera`, each dot by itself, per pair of the target's dots", adjustCamera},
      {"`Sl3dScanner::calib`, per pixel of both devices", calibrateScanner},
      {"`StereoCamera::calib`, per pixel of both cameras", calibrateStereo},
      {"`LineScanner::calib`, per dot and line point of all views", calibrateLineScanner},
      {"`extract_laser_line`, \"PerColumn\"",
       [](Sizes const& s) { return extractLaser(s, Direction::PerColumn); }},
      {"`extract_laser_line`, \"PerRow\"", [](Sizes const& s) { return extractLaser(s, Direction::PerRow); }},
      {"`extract_laser_line`, in colour",
       [](Sizes const& s) { return extractLaser(s, Direction::PerColumn, true); }},
      {"`LineScanner::triangulate`, per point", triangulateLaser},
  };
}

} // namespace vorn::bench
