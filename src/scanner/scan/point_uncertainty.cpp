// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/point_uncertainty.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "core/error.hpp"
#include "scanner/calibration/predicted_error.hpp"
#include "scanner/scan/sight_geometry.hpp"
#include "scanner/scanner_access.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "PointUncertainty";

cv::Matx33d matxOf(Eigen::Matrix3d const& m) {
  return {m(0, 0), m(0, 1), m(0, 2), m(1, 0), m(1, 1), m(1, 2), m(2, 0), m(2, 1), m(2, 2)};
}

/// A point in the camera's frame and how it moves with its coordinate and with the calibration.
struct Sight {
  cv::Vec3d point;
  Eigen::Vector3d byNoise; ///< by one standard deviation of the coordinate
  ByCalibration byCalibration;
};

} // namespace

double UncertainLength::sigma() const {
  return std::sqrt(calibration * calibration + noise * noise + pitch * pitch);
}

struct PointUncertainty::Private {
  SightGeometry geometry;
  CalibrationMatrix covariance;
  double scaleSigma;
  cv::Matx44d poseFromCam;

  Sight sightOf(ScannerSighting const& sighting) const {
    if (!(sighting.sigma >= 0) || !std::isfinite(sighting.sigma)) {
      throw error("The sigma of a coordinate must be 0 or more, not " + std::to_string(sighting.sigma),
                  context);
    }
    cv::Vec3d const point = geometry.pointOf(sighting.pixel, sighting.coordinate);
    if (!std::isfinite(point[2])) {
      std::ostringstream message;
      message << "Pixel " << sighting.pixel << " and projector coordinate " << sighting.coordinate
              << " have no point in front of both devices";
      throw error(message.str(), context);
    }
    cv::Vec3d const noise = sighting.sigma * geometry.byCoordinate(point);
    return {point, Eigen::Vector3d(noise.val), geometry.byCalibration(point)};
  }
};

PointUncertainty::PointUncertainty(Sl3dScanner const& scanner) {
  if (!scanner.isCalibrated()) {
    throw error("The scanner is not calibrated: it has no models with an error below half a pixel", context);
  }
  ScannerAccess::requireTransform(scanner, context);
  CalibrationCovariance const covariance = scanner.getCovariance();
  if (covariance.isEmpty()) {
    throw error("The scanner does not know how well it is calibrated: it has no \"Covariance\", which a "
                "calibration by adjustment gives it",
                context);
  }
  own_ = std::make_shared<Private const>(
      Private{SightGeometry(scanner.getCameraModel(), scanner.getProjectorModel(), scanner.getTransform(),
                            coordinateOf(scanner)),
              wholeMatrix(covariance), covariance.scaleSigma, scanner.getPose()});
}

UncertainPoint PointUncertainty::at(ScannerSighting const& sighting) const {
  Sight const sight = own_->sightOf(sighting);
  Eigen::Vector3d const place(sight.point.val);
  Eigen::Matrix3d const calibration =
      sight.byCalibration * own_->covariance * sight.byCalibration.transpose() +
      own_->scaleSigma * own_->scaleSigma * place * place.transpose();
  cv::Matx33d const R = math::getR3(own_->poseFromCam);
  UncertainPoint result;
  result.point = R * sight.point + math::getT3(own_->poseFromCam);
  result.calibration = R * matxOf(calibration) * R.t();
  result.noise = R * matxOf(sight.byNoise * sight.byNoise.transpose()) * R.t();
  return result;
}

UncertainLength PointUncertainty::between(ScannerSighting const& a, ScannerSighting const& b) const {
  Sight const from = own_->sightOf(a);
  Sight const to = own_->sightOf(b);
  UncertainLength result;
  result.length = cv::norm(to.point - from.point);
  if (!(result.length > 0)) {
    throw error("Two sightings of one point have no distance", context);
  }
  cv::Vec3d const along = (to.point - from.point) / result.length;
  Eigen::RowVector3d const n(along.val);
  auto const byCalibration = (n * (to.byCalibration - from.byCalibration)).eval();
  result.calibration =
      std::sqrt(std::max(0.0, (byCalibration * own_->covariance * byCalibration.transpose())(0)));
  result.noise = std::hypot(n.dot(from.byNoise), n.dot(to.byNoise));
  result.pitch = result.length * own_->scaleSigma;
  return result;
}

PredictedError PointUncertainty::over(WorkingVolume const& volume, double barLength) const {
  checkVolume(volume, context);
  if (!(barLength > 0) || !std::isfinite(barLength)) {
    throw error("barLength must be above 0, not " + std::to_string(barLength), context);
  }
  std::vector<cv::Vec3d> const points = pointsIn(volume, own_->geometry);
  if (points.empty()) {
    std::ostringstream message;
    message << "Camera and projector do not both see anything between the depths " << volume.nearest
            << " and " << volume.farthest;
    throw error(message.str(), context);
  }
  return predictedError(own_->geometry, own_->covariance, volume, points, barLength);
}

WorkingVolume workingVolume(Adjustment const& adjustment, std::vector<AdjustmentView> const& views) {
  if (views.empty() || views.size() != adjustment.poses.size()) {
    throw error("The adjustment is of " + std::to_string(adjustment.poses.size()) + " views, not of " +
                    std::to_string(views.size()),
                "workingVolume");
  }
  WorkingVolume volume{std::numeric_limits<double>::max(), 0};
  for (std::size_t i = 0; i < views.size(); ++i) {
    cv::Matx44d const& pose = adjustment.poses[i];
    for (cv::Point2f const& dot : views[i].objPnts) {
      double const depth =
          pose(2, 0) * static_cast<double>(dot.x) + pose(2, 1) * static_cast<double>(dot.y) + pose(2, 3);
      volume.nearest = std::min(volume.nearest, depth);
      volume.farthest = std::max(volume.farthest, depth);
    }
  }
  checkVolume(volume, "workingVolume");
  return volume;
}

} // namespace vorn::mv
