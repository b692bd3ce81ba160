// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/sight_geometry.hpp"

#include <cmath>
#include <limits>

#include <vorn/mv/geometry/transform.hpp>

namespace vorn::mv {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

cv::Vec3d rayOf(Undistortion const& rays, double x, double y) {
  rays.toRays(&x, &y, 1);
  return {x, y, 1};
}

bool isInside(cv::Size const& size, cv::Vec2d const& pixel) {
  return pixel[0] >= 0 && pixel[1] >= 0 && pixel[0] <= size.width - 1 && pixel[1] <= size.height - 1;
}

/// The first two columns of what maps points, for rays (x, y, 1).
cv::Matx22d byRay(Projection::ByPoint const& byPoint) {
  return {byPoint(0, 0), byPoint(0, 1), byPoint(1, 0), byPoint(1, 1)};
}

} // namespace

CalibrationMatrix wholeMatrix(CalibrationCovariance const& covariance) {
  CalibrationMatrix whole = CalibrationMatrix::Zero();
  std::vector<int> places;
  for (std::string const& parameter : covariance.parameters) {
    places.push_back(calibrationParameter(parameter));
  }
  for (std::size_t row = 0; row < places.size(); ++row) {
    for (std::size_t col = 0; col < places.size(); ++col) {
      whole(places[row], places[col]) =
          covariance.matrix.at<double>(static_cast<int>(row), static_cast<int>(col));
    }
  }
  return whole;
}

SightGeometry::SightGeometry(CameraModel const& camera, CameraModel const& projector,
                             cv::Matx44d const& cam_from_proj, MapCoordinate coordinate)
    : cameraNumbers_(cameraNumbers(camera.getK(), camera.getD())),
      projectorNumbers_(cameraNumbers(projector.getK(), projector.getD())), camera_(cameraNumbers_),
      projector_(projectorNumbers_), cameraRays_(camera.getK(), camera.getD()),
      projectorRays_(projector.getK(), projector.getD()), cameraSize_(camera.getResolution()),
      projectorSize_(projector.getResolution()), proj_from_cam_(math::getR3(cam_from_proj).t()),
      centre_(math::getT3(cam_from_proj)), axis_(coordinate == MapCoordinate::Column ? 0 : 1) {}

double SightGeometry::depthInPlane(cv::Vec3d const& ray, double coordinate, double across) const {
  constexpr double reach = 2; // pixels: over which a curved stripe of light is as good as straight
  auto const lightAt = [&](double other) {
    return axis_ == 0 ? mv::rayOf(projectorRays_, coordinate, other)
                      : mv::rayOf(projectorRays_, other, coordinate);
  };
  cv::Vec3d const normal = lightAt(across - reach).cross(lightAt(across + reach));
  return normal.dot(proj_from_cam_ * centre_) / normal.dot(proj_from_cam_ * ray);
}

cv::Vec3d SightGeometry::pointOf(cv::Point2d const& pixel, double coordinate) const {
  cv::Vec3d const ray = rayOf(pixel);
  double across = 0.5 * (axis_ == 0 ? projectorSize_.height : projectorSize_.width);
  double depth = nan;
  constexpr int guesses = 3;
  for (int i = 0; i < guesses; ++i) {
    depth = depthInPlane(ray, coordinate, across);
    across = projectorPixelOf(depth * ray)[1 - axis_];
  }
  constexpr int rounds = 10;
  constexpr double exact = 1e-10; // projector pixels
  for (int i = 0; i < rounds; ++i) {
    cv::Vec3d const point = depth * ray;
    Projection::ByPoint byPoint;
    double const missed = projector_(inProjector(point), &byPoint)[axis_] - coordinate;
    if (std::abs(missed) < exact) {
      return depth > 0 && inProjector(point)[2] > 0 ? point : cv::Vec3d(nan, nan, nan);
    }
    cv::Vec3d const slope = proj_from_cam_ * ray;
    depth -=
        missed / (byPoint(axis_, 0) * slope[0] + byPoint(axis_, 1) * slope[1] + byPoint(axis_, 2) * slope[2]);
  }
  return {nan, nan, nan};
}

cv::Vec3d SightGeometry::rayOf(cv::Point2d const& pixel) const {
  return mv::rayOf(cameraRays_, pixel.x, pixel.y);
}

bool SightGeometry::isSeen(cv::Vec3d const& point) const {
  return point[2] > 0 && inProjector(point)[2] > 0 && isInside(cameraSize_, cameraPixelOf(point)) &&
         isInside(projectorSize_, projectorPixelOf(point));
}

SightGeometry::Across SightGeometry::across(cv::Vec3d const& point) const {
  Projection::ByPoint byPoint;
  cv::Vec2d const pixel = projector_(inProjector(point), &byPoint);
  cv::Matx23d const slopes = byPoint * proj_from_cam_;
  cv::Vec3d const ray = point / point[2];
  cv::Vec3d const fromCentre = point - centre_;
  auto const slopeOf = [&](int axis) { return cv::Vec3d(slopes(axis, 0), slopes(axis, 1), slopes(axis, 2)); };
  cv::Vec3d const along = slopeOf(axis_);
  cv::Vec3d const other = slopeOf(1 - axis_);
  double const share = other.dot(ray) / along.dot(ray);
  return {pixel[1 - axis_], other.cross(fromCentre) - share * along.cross(fromCentre)};
}

cv::Vec3d SightGeometry::byCoordinate(cv::Vec3d const& point) const {
  Projection::ByPoint byPoint;
  projector_(inProjector(point), &byPoint);
  cv::Vec3d const ray = point / point[2];
  return ray / (byPoint * proj_from_cam_ * ray)[axis_];
}

ByCalibration SightGeometry::byCalibration(cv::Vec3d const& point) const {
  double const depth = point[2];
  cv::Vec3d const ray = point / depth;
  Projection::ByPoint cameraByRay;
  Projection::ByParameters cameraByLens;
  camera_(ray, &cameraByRay, &cameraByLens);
  Projection::ByPoint projectorByPoint;
  Projection::ByParameters projectorByLens;
  projector_(inProjector(point), &projectorByPoint, &projectorByLens);
  // The coordinate by the point in the camera's frame.
  cv::Matx13d const slope = (projectorByPoint * proj_from_cam_).row(axis_);
  double const byDepth = (slope * ray)[0];

  ByCalibration result;
  auto const fill = [&](int parameter, cv::Vec3d const& rayStep, double coordinateStep) {
    // Pixel and coordinate stay what they were: the ray turns, and the depth makes up for the coordinate.
    double const change = coordinateStep + depth * (slope * rayStep)[0];
    cv::Vec3d const step = depth * rayStep - ray * (change / byDepth);
    result.col(parameter) = Eigen::Vector3d(step.val);
  };
  cv::Matx<double, 2, Projection::parameterCount> const rayByLens = byRay(cameraByRay).inv() * cameraByLens;
  for (int i = 0; i < Projection::parameterCount; ++i) {
    fill(i, {-rayByLens(0, i), -rayByLens(1, i), 0}, 0);
    fill(Projection::parameterCount + i, {}, projectorByLens(axis_, i));
  }
  // A turn of the projector about its centre moves what it sees the other way, a shift as well.
  cv::Vec3d const fromCentre = point - centre_;
  cv::Vec3d const bySlope(slope.val);
  cv::Vec3d const byTurn = bySlope.cross(fromCentre);
  for (int i = 0; i < 3; ++i) {
    fill(2 * Projection::parameterCount + i, {}, byTurn[i]);
    fill(2 * Projection::parameterCount + 3 + i, {}, -bySlope[i]);
  }
  return result;
}

} // namespace vorn::mv
