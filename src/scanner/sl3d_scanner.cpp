// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/system.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/sl/encoding_type.hpp>
#include <vorn/mv/sl/lookup_tables.hpp>
#include <vorn/mv/sl/scanner_type.hpp>

#include "calib/calibrated_poses.hpp"
#include "calib/covariance_json.hpp"
#include "calib/transform_json.hpp"
#include "calib/undistorted_map.hpp"
#include "core/error.hpp"
#include "core/json_member.hpp"
#include "scanner/scan/triangulation.hpp"
#include "scanner/scanner_access.hpp"
#include "sl/decode/scan_decoding.hpp"
#include "sl/decode/scan_stack.hpp"
#include "sl/decode/texture.hpp"

namespace vorn::mv {

namespace {

/// The rays of a camera's pixels, and what they were reckoned from.
struct LensMap {
  CameraModel model;
  cv::Mat_<cv::Vec2f> rays;

  bool isOf(CameraModel const& other) const {
    return !rays.empty() && model.getResolution() == other.getResolution() &&
           equal(model.getK(), other.getK()) && equal(model.getD(), other.getD());
  }

  static bool equal(cv::Mat const& a, cv::Mat const& b) {
    return a.size() == b.size() && (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0.0);
  }
};

/// Makes `map` that of `model`, if it is not yet.
void updateLensMap(LensMap& map, CameraModel const& model, Progress const& progress = {}) {
  if (!map.isOf(model)) {
    cv::Mat_<cv::Vec2f> const rays =
        undistortedMap(model.getK(), model.getD(), model.getResolution(), progress);
    map = {model, rays};
  }
}

/// Working memory that belongs to one object: a copy starts without.
struct WorkingMemory {
  WorkingMemory() = default;
  WorkingMemory(WorkingMemory const& /*other*/) {}
  WorkingMemory& operator=(WorkingMemory const&) = delete;

  sl::ScanMaps buffers;
};

template <class T>
std::string text(char const* label, T const& value) {
  std::ostringstream stream;
  stream << label << value;
  return stream.str();
}

void logDebug(std::string const& message) {
  if (Library::getEnableDebug()) {
    System::log(message);
  }
}

bool isHorizontal(PropertySetBase const& scanner) {
  IEnum const& type = scanner["ScannerType"];
  return type.getIndex() == scanner::ScannerType::Horizontal;
}

sl::ScanDecodingSettings decodingSettings(PropertySetBase const& scanner, sl::CodedAxis const& axis,
                                          sl::GreyStack const& stack) {
  auto const levelsOf = [&](char const* property) {
    int const grey = scanner[property];
    return static_cast<int>(std::lround(grey * stack.perGrey()));
  };
  sl::ScanDecodingSettings settings;
  settings.period = axis.code.period;
  settings.resolution = axis.resolution;
  settings.white = stack.white;
  settings.maxGrayLevel = levelsOf("MaxGrayLevel");
  settings.minContrast = levelsOf("BlackWhiteSensitivity");
  settings.minAmplitude = levelsOf("Sensitivity");
  settings.minPhaseConfidence = scanner["MinPhaseConfident"].getValue().toDouble();
  settings.phaseBlurRadius = scanner["PhaseBlurRadius"];
  settings.minSegmentSize = scanner["MinSegmentSize"];
  settings.maxFillRadius = scanner["MaxFillRadius"];
  return settings;
}

} // namespace

struct Sl3dScanner::Private : Record<Sl3dScanner::Private, PropertySetBase::Private> {
  Private() { isNeverShared = true; } // as the camera models in it

  CameraModel camera;
  CameraModel projector;
  cv::Matx44d camFromProj = cv::Matx44d::eye();
  cv::Matx44d poseFromCam = cv::Matx44d::eye();
  /// A document without "Hpc" was read and no transform was given since.
  bool lacksTransform = false;
  CalibrationCovariance covariance;
  LensMap cameraMap;
  LensMap projectorMap;
  cv::Mat texture;
  WorkingMemory memory;
};

Sl3dScanner::Sl3dScanner() : AlgorithmBase(new Private) {
  declareProperties({scannerTypeRow(), encodingTypeRow(), enableTextureRow(), textureExposureRow(),
                     maxGrayLevelRow(), blackWhiteSensitivityRow(), minPhaseConfidentRow(), sensitivityRow(),
                     phaseBlurRadiusRow(), pointcloudBlurRadiusRow(), minSegmentSizeRow(), maxFillRadiusRow(),
                     enableDebugRow()});
}

Sl3dScanner::~Sl3dScanner() = default;

scanner::SlPatternInfo Sl3dScanner::getPatternInfo(bool alongWidth) const {
  IEnum const& encoding = getProperty("EncodingType");
  if (encoding.getIndex() != scanner::EncodingType::BinaryXor0_PhaseShift4x4px) {
    throw error("Encoding method not implemented.", "getPatternInfo");
  }
  cv::Size const resolution = getProjectorModel().getResolution();
  int const stripes = (alongWidth ? resolution.width : resolution.height) / 4;
  int const bits = stripes > 0 ? static_cast<int>(std::ceil(std::log2(static_cast<double>(stripes)))) : 0;
  return {4, bits, stripes};
}

cv::Mat_<float> Sl3dScanner::decode(std::vector<cv::Mat> const& images) {
  return ScannerAccess::decodeStack(*this, {images}, sl::StackDepth::Bytes, sl::ReasonMap::Leave, Progress())
      .coordinates;
}

sl::CodedAxis ScannerAccess::codedAxis(Sl3dScanner const& scanner) {
  return sl::codedAxis(scanner.getProjectorModel().getResolution(), isHorizontal(scanner));
}

sl::DecodedScan ScannerAccess::decode(Sl3dScanner& scanner, sl::GreyStack const& stack,
                                      sl::ReasonMap reasonMap, Progress const& progress) {
  return decodeStack(scanner, stack, sl::StackDepth::Any, reasonMap, progress);
}

sl::DecodedScan ScannerAccess::decodeStack(Sl3dScanner& scanner, sl::GreyStack const& stack,
                                           sl::StackDepth depth, sl::ReasonMap reasonMap,
                                           Progress const& progress) {
  // Reading through the calls that lend the models would keep copies from sharing this scanner's record.
  Sl3dScanner const& self = scanner;
  self.getPatternInfo(isHorizontal(self));
  sl::CodedAxis const axis = codedAxis(self);
  sl::checkStack(stack.images, axis, self.getCameraModel().getResolution(), depth);
  sl::ScanDecodingSettings const settings = decodingSettings(self, axis, stack);
  bool const enableTexture = self["EnableTexture"];
  bool const enableDebug = self["EnableDebug"];
  auto& own = static_cast<Sl3dScanner::Private&>(scanner.ownRecord());
  Timer timer;
  auto const report = [&](char const* label) {
    logDebug(text(label, timer.toString()) + "\n");
    timer.tic();
  };
  sl::DecodedScan scan =
      sl::decodeScan(stack.images, settings, reasonMap, own.memory.buffers, report, progress);
  logDebug(text("Hole filling time:", timer.toString()) + "\n");
  logDebug(text("Fill count:", scan.filled) + "\n");
  if (enableDebug) {
    logDebug(text("Decoded pixels:", cv::countNonZero(scan.coordinates >= 0.0F)) + "\n");
  }
  progress.at("decoding", 1);
  if (enableTexture) {
    own.texture = sl::whiteLevel(stack);
  }
  return scan;
}

sl::TriangulationSetup ScannerAccess::triangulationSetup(Sl3dScanner& scanner, Progress const& progress) {
  Sl3dScanner const& self = scanner;
  sl::checkProjector(self.getProjectorModel().getResolution());
  auto& own = static_cast<Sl3dScanner::Private&>(scanner.ownRecord());
  updateLensMap(own.cameraMap, own.camera, progress.part(0.0, 0.5));
  updateLensMap(own.projectorMap, own.projector, progress.part(0.5, 1.0));
  return {own.cameraMap.rays, own.projectorMap.rays, own.camFromProj, own.poseFromCam};
}

void ScannerAccess::requireTransform(Sl3dScanner const& scanner, char const* context) {
  if (static_cast<Sl3dScanner::Private const&>(scanner.record()).lacksTransform) {
    throw error(
        "The scanner was read from a document without \"Hpc\", the transform from the projector to the "
        "camera: take a complete document, or set the transform",
        context);
  }
}

void Sl3dScanner::triangulate(cv::Mat_<float> const& phase, cv::Mat_<cv::Vec3f>& xyz, cv::Rect const& roi) {
  if (!isCalibrated()) {
    throw error("Attempting to use an uncalibrated system.", "triangulate");
  }
  Library::assertValid();
  ScannerAccess::requireTransform(*this, "triangulate");
  Sl3dScanner const& self = *this;
  cv::Mat_<float> const coordinates = sl::cropTo(phase, roi, self.getCameraModel().getResolution());
  sl::TriangulationSetup const setup = ScannerAccess::triangulationSetup(*this);
  xyz.create(roi.size());
  if (isHorizontal(self)) {
    sl::triangulateColumns(setup, coordinates, roi, xyz);
  } else {
    sl::triangulateRows(setup, coordinates, roi, xyz);
    sl::clearLeftOut(xyz);
  }
  int const radius = self["PointcloudBlurRadius"];
  if (radius >= 1) {
    // Isolated: `xyz` may be a region of a larger map, whose other points are none of this scan's.
    cv::GaussianBlur(xyz, xyz, cv::Size(2 * radius + 1, 2 * radius + 1), 0, 0,
                     cv::BORDER_REFLECT_101 | cv::BORDER_ISOLATED);
  }
}

void Sl3dScanner::calib(CameraCalibData& camera, CameraCalibData& projector) {
  if (ScannerAccess::calib(*this, camera, projector)) {
    calcUndistortedMaps();
  }
}

bool ScannerAccess::calib(Sl3dScanner& scanner, CameraCalibData& camera, CameraCalibData& projector) {
  constexpr int maxIterations = 100;
  if (camera.count() < 3) {
    throw error("Insufficient calibration data", "calib");
  }
  if (projector.count() < 3) {
    throw error("Not enough calibration sample.", "calib");
  }
  if (camera.count() != projector.count()) {
    throw error(text("The camera has samples: ", camera.count()) +
                    text(", the projector: ", projector.count()),
                "calib");
  }
  // On copies, so that nothing has changed when one of them fails.
  CameraModel cameraModel = std::as_const(scanner).getCameraModel();
  CameraModel projectorModel = std::as_const(scanner).getProjectorModel();
  CameraCalibData cameraData = camera;
  CameraCalibData projectorData = projector;
  double const cameraError = cameraModel.calib(cameraData, maxIterations);
  double const projectorError = projectorModel.calib(projectorData, maxIterations);
  auto& own = static_cast<Sl3dScanner::Private&>(scanner.ownRecord());
  own.camera = cameraModel;
  own.projector = projectorModel;
  own.lacksTransform = false;
  own.covariance = {};
  own.camFromProj = meanTransform(latestPoses(cameraData), latestPoses(projectorData));
  addNewPoses(camera, cameraData);
  addNewPoses(projector, projectorData);
  logDebug(text("Hpc=", own.camFromProj) + "\n");
  constexpr double calibratedBelow = 0.5;
  return cameraError < calibratedBelow && projectorError < calibratedBelow;
}

void Sl3dScanner::calcUndistortedMaps() {
  if (!isCalibrated()) {
    return;
  }
  auto& own = static_cast<Private&>(ownRecord());
  updateLensMap(own.projectorMap, own.projector);
  System::message("DONE\n");
  updateLensMap(own.cameraMap, own.camera);
  System::message("DONE\n");
}

CameraModel const& Sl3dScanner::getCameraModel() const {
  return static_cast<Private const&>(record()).camera;
}

CameraModel& Sl3dScanner::getCameraModel() {
  return static_cast<Private&>(lendRecord()).camera;
}

CameraModel const& Sl3dScanner::getProjectorModel() const {
  return static_cast<Private const&>(record()).projector;
}

CameraModel& Sl3dScanner::getProjectorModel() {
  return static_cast<Private&>(lendRecord()).projector;
}

cv::Matx44d Sl3dScanner::getTransform() const {
  return static_cast<Private const&>(record()).camFromProj;
}

void Sl3dScanner::setTransform(cv::Matx44d const& camFromProj) {
  auto& own = static_cast<Private&>(ownRecord());
  own.camFromProj = camFromProj;
  own.lacksTransform = false;
  own.covariance = {};
}

cv::Matx44d Sl3dScanner::getPose() const {
  return static_cast<Private const&>(record()).poseFromCam;
}

void Sl3dScanner::setPose(cv::Matx44d const& poseFromCam) {
  static_cast<Private&>(ownRecord()).poseFromCam = poseFromCam;
}

cv::Mat Sl3dScanner::getTexture() const {
  return static_cast<Private const&>(record()).texture;
}

bool Sl3dScanner::isCalibrated() const {
  return getCameraModel().isCalibrated() && getProjectorModel().isCalibrated();
}

CalibrationCovariance Sl3dScanner::getCovariance() const {
  CalibrationCovariance covariance = static_cast<Private const&>(record()).covariance;
  covariance.matrix = covariance.matrix.clone();
  return covariance;
}

void Sl3dScanner::setCovariance(CalibrationCovariance const& covariance) {
  CalibrationCovariance const own = covarianceFor(2, covariance, "Sl3dScanner");
  static_cast<Private&>(ownRecord()).covariance = own;
}

std::string const& Sl3dScanner::getClassName() const {
  static std::string const name = "vorn::mv::Sl3dScanner";
  return name;
}

std::string Sl3dScanner::toString() const {
  return AlgorithmBase::toString() + (isCalibrated() ? ", calibrated" : ", not calibrated");
}

void Sl3dScanner::read(nlohmann::json const& json) {
  CameraModel camera;
  CameraModel projector;
  readJsonObject(json, "CameraModel", camera, "Sl3dScanner");
  readJsonObject(json, "ProjectorModel", projector, "Sl3dScanner");
  cv::Matx44d const poseFromCam = readTransform(json, "Hpose", "Sl3dScanner");
  bool const hasTransform = json.contains("Hpc");
  cv::Matx44d const camFromProj = hasTransform ? readTransform(json, "Hpc", "Sl3dScanner") : getTransform();
  CalibrationCovariance const covariance = readCovariance(json, 2, "Sl3dScanner");
  if (json.contains("Properties")) {
    atJsonPlace("Properties", "Sl3dScanner", [&] { AlgorithmBase::read(json["Properties"]); });
  }
  auto& own = static_cast<Private&>(ownRecord());
  own.camera = camera;
  own.projector = projector;
  own.camFromProj = camFromProj;
  own.lacksTransform = !hasTransform;
  own.poseFromCam = poseFromCam;
  own.covariance = covariance;
}

void Sl3dScanner::write(nlohmann::json& json) const {
  auto const& own = static_cast<Private const&>(record());
  nlohmann::json document = nlohmann::json::object();
  own.camera.write(document["CameraModel"]);
  own.projector.write(document["ProjectorModel"]);
  if (!own.lacksTransform) {
    document["Hpc"] = own.camFromProj;
  }
  document["Hpose"] = own.poseFromCam;
  writeCovariance(document, own.covariance);
  AlgorithmBase::write(document["Properties"]);
  json = std::move(document);
}

} // namespace vorn::mv
