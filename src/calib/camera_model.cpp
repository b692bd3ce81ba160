// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/camera_model.hpp>

#include <array>
#include <cfloat>
#include <cmath>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/variant.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "calib/covariance_json.hpp"
#include "calib/undistortion.hpp"
#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::mv {

struct CameraModel::Private : Record<CameraModel::Private> {
  // K and D are handed out, and a copy of a matrix's header may change the pixels: every model has its own.
  Private() { isNeverShared = true; }
  Private(Private const& other)
      : Record(other), K(other.K.clone()), D(other.D.clone()), resolution(other.resolution),
        calibError(other.calibError), covariance(other.covariance) {}

  cv::Mat K;
  cv::Mat D;
  cv::Size resolution;
  double calibError = -1;
  CalibrationCovariance covariance; ///< never lent, so copies may share its matrix
};

namespace {

constexpr char const* context = "CameraModel";

/// Pattern points in space: they lie in its plane z = 0.
std::vector<cv::Point3f> lifted(std::vector<cv::Point2f> const& points) {
  std::vector<cv::Point3f> result;
  result.reserve(points.size());
  for (cv::Point2f const& p : points) {
    result.emplace_back(p.x, p.y, 0.0F);
  }
  return result;
}

cv::Matx44d poseOf(cv::Mat const& rvec, cv::Mat const& tvec) {
  cv::Mat R;
  cv::Rodrigues(rvec, R);
  return math::createTransform(R, tvec);
}

/// The points where rays meet a plane, given by a point and a normal.
std::vector<cv::Vec3d> pointsOnPlane(std::vector<cv::Point2d> const& rays, cv::Vec3d const& point,
                                     cv::Vec3d const& normal) {
  double const planeOffset = normal.dot(point);
  std::vector<cv::Vec3d> points;
  points.reserve(rays.size());
  for (cv::Point2d const& xy : rays) {
    cv::Vec3d const ray(xy.x, xy.y, 1);
    points.push_back(ray * (planeOffset / normal.dot(ray)));
  }
  return points;
}

/// A matrix of a document as double, or an empty one where it is left out.
cv::Mat readDoubles(nlohmann::json const& json, char const* key) {
  cv::Mat result;
  if (json.contains(key)) {
    jsonValue<cv::Mat>(json, key, context).convertTo(result, CV_64F);
  }
  return result;
}

/// Focal lengths in pixels beyond this are no lens's: a field of view of a millionth of a degree, or one that
/// cannot be told from 180 degrees.
constexpr double leastFocalLength = 1e-3;
constexpr double greatestFocalLength = 1e9;

void checkFocalLength(cv::Matx33d const& K, int axis) {
  double const f = K(axis, axis);
  if (!(f >= leastFocalLength && f <= greatestFocalLength)) {
    throw JsonRefusal(
        "data[" + std::to_string(4 * axis) + ']',
        " is " + Variant(f).toString() + ", but a focal length lies between 0.001 and 1e9 pixels", context);
  }
}

/// @param read CV_64F, as `readDoubles` makes it
void checkFinite(cv::Mat const& read) {
  for (int i = 0; i < static_cast<int>(read.total()); ++i) {
    if (!std::isfinite(read.ptr<double>()[i])) {
      throw JsonRefusal("data[" + std::to_string(i) + ']', " is not finite", context);
    }
  }
}

/// A camera matrix of a document: what no calibration makes would be ignored in silence, or measured with.
void checkMatrixOf(cv::Mat const& read) {
  if (read.size() != cv::Size(3, 3) || read.channels() != 1) {
    throw JsonRefusal(
        "", " is " + std::to_string(read.rows) + " x " + std::to_string(read.cols) + ", not 3 x 3", context);
  }
  cv::Matx33d const K = read;
  checkFinite(read);
  checkFocalLength(K, 0);
  checkFocalLength(K, 1);
  constexpr std::array<int, 5> fixed = {1, 3, 6, 7, 8};
  for (int const i : fixed) {
    double const wanted = i == 8 ? 1 : 0;
    if (std::abs(K.val[i] - wanted) > 1e-9) {
      throw JsonRefusal("data[" + std::to_string(i) + ']',
                        " is " + Variant(K.val[i]).toString() + ", but a camera matrix has " +
                            (i == 1   ? "no skew: 0"
                             : i == 8 ? "1"
                                      : "0") +
                            " there",
                        context);
    }
  }
}

} // namespace

CameraModel::CameraModel() : ObjectBase(new Private) {}

CameraModel::~CameraModel() = default;

double CameraModel::calib(CameraCalibData& data, int maxIterations) {
  Library::assertValid();
  if (data.count() < 3) {
    throw error("Not enough calibration sample.", "calib");
  }
  if (getResolution().empty()) {
    throw error("The resolution must be set before the calibration", "calib");
  }
  std::vector<std::vector<cv::Point3f>> objPntss;
  for (auto const& objPnts : data.getObjPntss()) {
    objPntss.push_back(lifted(objPnts));
  }
  cv::Mat K = getK().clone();
  cv::Mat D = getD().clone();
  std::vector<cv::Mat> rvecs;
  std::vector<cv::Mat> tvecs;
  double const calibError = cv::calibrateCamera(
      objPntss, data.getImgPntss(), getResolution(), K, D, rvecs, tvecs, 0,
      cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, maxIterations, DBL_EPSILON));
  for (std::size_t i = 0; i < rvecs.size(); ++i) {
    data.addPose(poseOf(rvecs[i], tvecs[i]));
  }
  auto& model = static_cast<Private&>(ownRecord());
  model.K = K;
  model.D = D;
  model.calibError = calibError;
  model.covariance = {};
  return calibError;
}

cv::Matx44d CameraModel::estimate(std::vector<cv::Point2f> const& imgPnts,
                                  std::vector<cv::Point2f> const& objPnts) const {
  checkCamera(getK(), getD());
  cv::Mat rvec;
  cv::Mat tvec;
  cv::solvePnP(lifted(objPnts), imgPnts, getK(), getD(), rvec, tvec, false, cv::SOLVEPNP_ITERATIVE);
  return poseOf(rvec, tvec);
}

std::vector<cv::Point2f> CameraModel::calcImagePoints(std::vector<cv::Point3f> const& objPnts,
                                                      cv::Matx44d const& pose) const {
  checkCamera(getK(), getD());
  std::vector<cv::Point2f> imgPnts;
  if (!objPnts.empty()) {
    cv::Vec3d rvec;
    cv::Rodrigues(math::getR3(pose), rvec);
    cv::projectPoints(objPnts, rvec, math::getT3(pose), getK(), getD(), imgPnts);
  }
  return imgPnts;
}

std::vector<cv::Point2f> CameraModel::calcImagePoints(std::vector<cv::Point2f> const& objPnts,
                                                      cv::Matx44d const& pose) const {
  return calcImagePoints(lifted(objPnts), pose);
}

std::vector<cv::Point3f> CameraModel::calcObjectPoints(std::vector<cv::Point2f> const& imgPnts,
                                                       cv::Matx44d const& pose) const {
  cv::Matx33d const R = math::getR3(pose);
  cv::Vec3d const t = math::getT3(pose);
  cv::Matx33d const inverse = R.inv();
  std::vector<cv::Point3f> objPnts;
  objPnts.reserve(imgPnts.size());
  for (cv::Vec3d const& x : pointsOnPlane(undistorted(getK(), getD(), imgPnts), t, R * cv::Vec3d(0, 0, 1))) {
    objPnts.emplace_back(cv::Vec3f(inverse * (x - t)));
  }
  return objPnts;
}

std::vector<cv::Point3f> CameraModel::triangulate(std::vector<cv::Point2f> const& imgPnts,
                                                  Plane3f const& plane, cv::Point2f const& offset) const {
  std::vector<cv::Point2f> shifted;
  shifted.reserve(imgPnts.size());
  for (cv::Point2f const& p : imgPnts) {
    shifted.push_back(p + offset);
  }
  std::vector<cv::Point3f> points;
  points.reserve(imgPnts.size());
  cv::Point3d const point = plane.point();
  for (cv::Vec3d const& x : pointsOnPlane(undistorted(getK(), getD(), shifted), point, plane.normal())) {
    points.emplace_back(cv::Vec3f(x));
  }
  return points;
}

std::vector<cv::Point2f> CameraModel::undistortPoints(std::vector<cv::Point2f> const& points) const {
  auto const rays = undistorted(getK(), getD(), points);
  return {rays.begin(), rays.end()};
}

void CameraModel::drawPose(cv::Mat& image, cv::Matx44d const& pose, float length, int thickness) const {
  std::vector<cv::Point3f> const axes{{0, 0, 0}, {length, 0, 0}, {0, length, 0}, {0, 0, length}};
  auto const ends = calcImagePoints(axes, pose);
  cv::line(image, ends[0], ends[1], cv::Scalar(255, 0, 0), thickness);
  cv::line(image, ends[0], ends[2], cv::Scalar(0, 255, 0), thickness);
  cv::line(image, ends[0], ends[3], cv::Scalar(0, 0, 255), thickness);
}

cv::Mat const& CameraModel::getK() const {
  return static_cast<Private const&>(record()).K;
}

cv::Mat const& CameraModel::getD() const {
  return static_cast<Private const&>(record()).D;
}

cv::Size const& CameraModel::getResolution() const {
  return static_cast<Private const&>(record()).resolution;
}

void CameraModel::setResolution(cv::Size const& resolution) {
  static_cast<Private&>(ownRecord()).resolution = resolution;
}

double CameraModel::getCalibError() const {
  return static_cast<Private const&>(record()).calibError;
}

bool CameraModel::isCalibrated() const {
  return getCalibError() > 0 && getCalibError() < 0.5;
}

CalibrationCovariance CameraModel::getCovariance() const {
  CalibrationCovariance covariance = static_cast<Private const&>(record()).covariance;
  covariance.matrix = covariance.matrix.clone();
  return covariance;
}

void CameraModel::setCovariance(CalibrationCovariance const& covariance) {
  CalibrationCovariance const own = covarianceFor(1, covariance, "CameraModel");
  static_cast<Private&>(ownRecord()).covariance = own;
}

std::string const& CameraModel::getClassName() const {
  static std::string const name = "vorn::mv::CameraModel";
  return name;
}

std::vector<std::string> const& CameraModel::getInterfaces() const {
  static std::vector<std::string> const names{"vorn::IObject", "vorn::IJsonSerializable"};
  return names;
}

void CameraModel::read(nlohmann::json const& json) {
  auto const resolution = jsonValue<cv::Size>(json, "Resolution", context);
  cv::Mat const K = readDoubles(json, "K");
  cv::Mat const D = readDoubles(json, "D");
  auto const calibError = jsonValue<double>(json, "Error", context);
  CalibrationCovariance const covariance = readCovariance(json, 1, context);
  if (resolution.width < 0 || resolution.height < 0) {
    throw JsonRefusal("Resolution", " must not be negative", context);
  }
  if (!K.empty() || !D.empty()) {
    atJsonPlace("K", context, [&] { checkMatrixOf(K); });
    atJsonPlace("D", context, [&] {
      checkFinite(D);
      checkCamera(K, D);
    });
  }
  auto& model = static_cast<Private&>(ownRecord());
  model.resolution = resolution;
  model.K = K;
  model.D = D;
  model.calibError = calibError;
  model.covariance = covariance;
}

void CameraModel::write(nlohmann::json& json) const {
  json = {{"Resolution", getResolution()}, {"Error", getCalibError()}};
  if (!getK().empty()) {
    json["K"] = getK();
  }
  if (!getD().empty()) {
    json["D"] = getD();
  }
  writeCovariance(json, static_cast<Private const&>(record()).covariance);
}

} // namespace vorn::mv
