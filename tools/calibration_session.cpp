// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration_session.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/projector_points.hpp>
#include <vorn/mv/sl/scanner_type.hpp>

#include "tools/image_files.hpp"
#include "tools/muted_output.hpp"
#include "tools/progress.hpp"
#include "tools/size_option.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;
using mv::CameraCalibData;
using mv::CameraModel;
using mv::Sl3dScanner;

namespace {

constexpr int leastViews = 3;

/// Projector points from which on a view says something about the projector.
constexpr std::size_t leastProjectorPoints = 20;

/// A view whose error exceeds this many times that of the middle view is thought to have a fault of its
/// own...
constexpr double mostRelativeError = 3;
/// ... unless its error is small anyway, pixels.
constexpr double harmlessError = 0.1;

/// Between the two most different views, degrees.
constexpr double leastTurn = 4;

Exception failure(std::string const& message) {
  return {message, nullptr, 0, "calibrate"};
}

std::vector<fs::path> poseFolders(std::string const& folder) {
  fs::path const inner = fs::path(folder) / "calib";
  fs::path const root = fs::is_directory(inner) ? inner : fs::path(folder);
  if (!fs::is_directory(root)) {
    throw failure("There is no folder " + root.string());
  }
  std::vector<fs::path> poses;
  for (auto const& entry : fs::directory_iterator(root)) {
    if (entry.is_directory() && entry.path().filename().string().rfind("pose_", 0) == 0) {
      poses.push_back(entry.path());
    }
  }
  if (poses.empty()) {
    throw failure("There are no folders pose_00, pose_01, ... in " + root.string());
  }
  std::sort(poses.begin(), poses.end());
  return poses;
}

/// Images of a sequence and the projector resolution that its images can code at most.
struct CodedAxis {
  char const* prefix;
  mv::scanner::ScannerType::Item type;
  int period;
  int cv::Size::*extent;
};

CodedAxis const columnAxis = {"columns", mv::scanner::ScannerType::Horizontal, 4, &cv::Size::width};
CodedAxis const rowAxis = {"rows", mv::scanner::ScannerType::Vertical, 8, &cv::Size::height};

constexpr int imagesBesidePlanes = 5; // four phases and the reference

/// The largest resolution of an axis that `images` pictures tell apart: words number the stripes from 2 on
/// and have one bit in the reference and one in each plane.
int largestExtent(CodedAxis const& axis, int images) {
  int const bits = std::clamp(images - imagesBesidePlanes + 1, 1, 13);
  return axis.period * ((1 << bits) - 2);
}

cv::Mat decodeAxis(CodedAxis const& axis, std::string const& folder, cv::Size const& camera,
                   cv::Size const& projector) {
  std::vector<cv::Mat> const images = readSequence(folder, axis.prefix);
  if (images.empty()) {
    throw failure("there is no " + std::string(axis.prefix) + "_00.png");
  }
  cv::Size coded = projector;
  if (coded.empty()) {
    coded = {16, 16};
    coded.*axis.extent = largestExtent(axis, static_cast<int>(images.size()));
  }
  Sl3dScanner decoder;
  decoder["ScannerType"] = mv::scanner::ScannerType(axis.type);
  // Dots are fitted over their own pixels: filled holes would pass for measured ones, and on black ground
  // each dot is a segment of its own.
  decoder["MaxFillRadius"] = 0;
  decoder["MinSegmentSize"] = 20;
  decoder["MaxGrayLevel"] = 200;
  decoder.getCameraModel().setResolution(camera);
  decoder.getProjectorModel().setResolution(coded);
  return decoder.decode(images);
}

/// What the views have in common and grows while they are read.
struct Extents {
  cv::Size camera;
  /// Largest decoded coordinates.
  cv::Point2f farthest;
  /// Pictures of either sequence.
  int columnImages = 0;
  int rowImages = 0;
};

/// A value that all but a few of the decoded pixels stay below.
float farthestOf(cv::Mat const& map) {
  std::vector<float> values;
  for (int y = 0; y < map.rows; ++y) {
    std::copy_if(map.ptr<float>(y), map.ptr<float>(y) + map.cols, std::back_inserter(values),
                 [](float v) { return v >= 0; });
  }
  if (values.empty()) {
    return 0;
  }
  auto const nth = values.begin() + static_cast<std::ptrdiff_t>(values.size() - 1 - values.size() / 2000);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

void findProjectorPoints(CalibrationView& view, std::string const& folder,
                         CalibrationSettings const& settings, Extents& extents) {
  cv::Mat const columns = decodeAxis(columnAxis, folder, extents.camera, settings.projector);
  cv::Mat const rows = decodeAxis(rowAxis, folder, extents.camera, settings.projector);
  extents.farthest.x = std::max(extents.farthest.x, farthestOf(columns));
  extents.farthest.y = std::max(extents.farthest.y, farthestOf(rows));
  extents.columnImages = static_cast<int>(findSequence(folder, columnAxis.prefix).size());
  extents.rowImages = static_cast<int>(findSequence(folder, rowAxis.prefix).size());
  std::vector<cv::Point2f> points;
  std::vector<std::uint8_t> valid;
  mv::find_projector_points(columns, rows, view.camera.imgPnts, points, valid);
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (valid[i] != 0) {
      view.projector.imgPnts.push_back(points[i]);
      view.projector.objPnts.push_back(view.camera.objPnts[i]);
    }
  }
  if (view.projector.imgPnts.size() < leastProjectorPoints) {
    view.rejection =
        "the projector's light reaches only " + std::to_string(view.projector.imgPnts.size()) + " dots";
  }
}

CalibrationView readView(fs::path const& folder, CalibrationSettings const& settings, Extents& extents) {
  CalibrationView view;
  view.name = folder.filename().string();
  try {
    cv::Mat const image = readGrayImage((folder / "target.png").string());
    if (!extents.camera.empty() && image.size() != extents.camera) {
      view.rejection =
          "its image is " + sizeText(image.size()) + ", the first view's " + sizeText(extents.camera);
      return view;
    }
    auto const found = settings.detector.detect(image);
    if (found.isEmpty()) {
      view.rejection = "no target found, or fewer dots than MinKeypointCount";
      return view;
    }
    extents.camera = image.size();
    view.isOriginMarked = found.isOriginMarked();
    view.camera.imgPnts = found.getImgPnts();
    view.camera.objPnts = found.getObjPnts();
    findProjectorPoints(view, folder.string(), settings, extents);
  } catch (Exception const& e) {
    view.rejection = e.message();
  }
  return view;
}

/// Each device counts an unmarked grid from another origin: such views go together with nothing.
void rejectUnmarked(std::vector<CalibrationView>& views) {
  for (CalibrationView& view : views) {
    if (view.rejection.empty() && !view.isOriginMarked) {
      view.rejection = "the marker dots are not in view";
    }
  }
}

void requireViews(std::vector<CalibrationView> const& views) {
  int usable = 0;
  std::string reasons;
  for (CalibrationView const& view : views) {
    usable += view.rejection.empty() ? 1 : 0;
    if (!view.rejection.empty()) {
      reasons += (reasons.empty() ? "; " : ", ") + view.name + ": " + view.rejection;
    }
  }
  if (usable < leastViews) {
    throw failure("Only " + std::to_string(usable) + " of " + std::to_string(views.size()) +
                  " views can be used, and a calibration takes " + std::to_string(leastViews) + reasons);
  }
}

/// The least usual projector resolution that shows what was decoded and needs as many pictures, or else the
/// decoded range itself. It bounds the range of valid coordinates; the calibration hardly depends on it.
cv::Size guessProjector(Extents const& extents) {
  static std::vector<cv::Size> const usual = {
      {320, 240},   {480, 320},   {608, 684},   {640, 360},   {640, 400},   {640, 480},
      {800, 480},   {800, 600},   {848, 480},   {854, 480},   {912, 570},   {912, 1140},
      {1024, 600},  {1024, 768},  {1140, 912},  {1280, 720},  {1280, 800},  {1280, 960},
      {1280, 1024}, {1366, 768},  {1400, 1050}, {1600, 1200}, {1920, 1080}, {1920, 1200},
      {2048, 1080}, {2560, 1440}, {2560, 1600}, {3840, 2160}, {4096, 2160}};
  auto const fits = [](int extent, int images, CodedAxis const& axis, float farthest) {
    bool const isCoded = extent <= largestExtent(axis, images) && extent > largestExtent(axis, images - 1);
    constexpr float slack = 0.5F;
    return static_cast<float>(extent) > farthest + slack && isCoded;
  };
  cv::Size best;
  for (cv::Size const& size : usual) {
    if (fits(size.width, extents.columnImages, columnAxis, extents.farthest.x) &&
        fits(size.height, extents.rowImages, rowAxis, extents.farthest.y) &&
        (best.empty() || size.area() < best.area())) {
      best = size;
    }
  }
  if (!best.empty()) {
    return best;
  }
  constexpr int step = 8;
  auto const rounded = [](float farthest) { return (static_cast<int>(farthest) / step + 1) * step; };
  return {rounded(extents.farthest.x), rounded(extents.farthest.y)};
}

void fillResiduals(ViewPoints& points, CameraModel const& model, cv::Matx44d const& pose) {
  std::vector<cv::Point2f> const modelled = model.calcImagePoints(points.objPnts, pose);
  points.residuals.clear();
  for (std::size_t i = 0; i < modelled.size(); ++i) {
    points.residuals.push_back(modelled[i] - points.imgPnts[i]);
  }
}

/// The largest angle between the target's normals in two views, degrees.
double largestTurn(CameraCalibData const& data) {
  double least = 1;
  for (int i = 0; i < data.count(); ++i) {
    for (int j = 0; j < i; ++j) {
      cv::Matx44d const& a = data.getPose(i);
      cv::Matx44d const& b = data.getPose(j);
      least = std::min(least, a(0, 2) * b(0, 2) + a(1, 2) * b(1, 2) + a(2, 2) * b(2, 2));
    }
  }
  return std::acos(std::clamp(least, -1.0, 1.0)) * 180.0 / CV_PI;
}

void calibrateOnce(Calibration& calibration, cv::Size const& camera, cv::Size const& projector) {
  CameraCalibData cameraData;
  CameraCalibData projectorData;
  for (CalibrationView const& view : calibration.views) {
    if (view.rejection.empty()) {
      cameraData.add(view.camera.imgPnts, view.camera.objPnts);
      projectorData.add(view.projector.imgPnts, view.projector.objPnts);
    }
  }
  Sl3dScanner scanner;
  scanner.getCameraModel().setResolution(camera);
  scanner.getProjectorModel().setResolution(projector);
  {
    MutedOutput const muted;
    scanner.calib(cameraData, projectorData);
  }
  if (largestTurn(cameraData) < leastTurn) {
    throw failure(
        "All views show the target from the same side, which leaves the focal length undetermined: tilt the "
        "target by 20 degrees and more, to different sides");
  }
  int number = 0;
  for (CalibrationView& view : calibration.views) {
    if (view.rejection.empty()) {
      fillResiduals(view.camera, scanner.getCameraModel(), cameraData.getPose(number));
      fillResiduals(view.projector, scanner.getProjectorModel(), projectorData.getPose(number));
      ++number;
    }
  }
  calibration.scanner = scanner;
}

/// Leaves out views whose error stands out. Returns whether there were any.
bool rejectOutliers(std::vector<CalibrationView>& views) {
  bool isAnyRejected = false;
  for (ViewPoints CalibrationView::*device : {&CalibrationView::camera, &CalibrationView::projector}) {
    std::vector<double> errors;
    for (CalibrationView const& view : views) {
      if (view.rejection.empty()) {
        errors.push_back((view.*device).rms());
      }
    }
    auto const middle = errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2);
    std::nth_element(errors.begin(), middle, errors.end());
    double const most = std::max(harmlessError, mostRelativeError * *middle);
    for (CalibrationView& view : views) {
      double const error = (view.*device).rms();
      if (view.rejection.empty() && error > most) {
        view.rejection = std::string("the ") + (device == &CalibrationView::camera ? "camera" : "projector") +
                         "'s reprojection error is " + std::to_string(error) + " px";
        isAnyRejected = true;
      }
    }
  }
  return isAnyRejected;
}

double rotationDefectOf(cv::Matx44d const& transform) {
  cv::Matx33d const r = mv::math::getR3(transform);
  return cv::norm(r.t() * r - cv::Matx33d::eye(), cv::NORM_INF);
}

} // namespace

double ViewPoints::rms() const {
  double squares = 0;
  for (cv::Point2f const& residual : residuals) {
    squares += residual.ddot(residual);
  }
  return residuals.empty() ? 0.0 : std::sqrt(squares / static_cast<double>(residuals.size()));
}

Calibration calibrateScanner(std::string const& folder, CalibrationSettings const& settings) {
  Calibration calibration;
  Extents extents;
  std::vector<fs::path> const poses = poseFolders(folder);
  {
    Progress progress("Reading views", static_cast<int>(poses.size()));
    for (fs::path const& pose : poses) {
      calibration.views.push_back(readView(pose, settings, extents));
      progress.step();
    }
  }
  rejectUnmarked(calibration.views);
  requireViews(calibration.views);
  calibration.isProjectorGuessed = settings.projector.empty();
  cv::Size const projector = calibration.isProjectorGuessed ? guessProjector(extents) : settings.projector;
  calibrateOnce(calibration, extents.camera, projector);
  if (rejectOutliers(calibration.views)) {
    requireViews(calibration.views);
    calibrateOnce(calibration, extents.camera, projector);
  }
  calibration.rotationDefect = rotationDefectOf(calibration.scanner.getTransform());
  return calibration;
}

} // namespace vorn::tools
