// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/predicted_error.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

#include <Eigen/Cholesky>
#include <Eigen/Dense>

#include "calib/undistortion.hpp"
#include "core/error.hpp"

namespace vorn::mv {

namespace {

constexpr int gridColumns = 13;
constexpr int gridRows = 9;
constexpr int gridDepths = 5;

/// A matrix L with L L' the covariance, whatever is missing in it.
CalibrationMatrix rootOf(CalibrationMatrix const& covariance) {
  // Scaled to correlations: the parameters' sizes differ by ten powers of ten.
  Eigen::VectorXd const sigmas = covariance.diagonal().cwiseMax(0).cwiseSqrt();
  Eigen::VectorXd const inverse = sigmas.unaryExpr([](double s) { return s > 0 ? 1 / s : 0; });
  CalibrationMatrix const correlations = inverse.asDiagonal() * covariance * inverse.asDiagonal();
  Eigen::SelfAdjointEigenSolver<CalibrationMatrix> const solver(correlations);
  Eigen::VectorXd const roots = solver.eigenvalues().cwiseMax(0).cwiseSqrt();
  return sigmas.asDiagonal() * solver.eigenvectors() * roots.asDiagonal();
}

/// The rigid motions of points and their size, as orthonormal columns.
Eigen::MatrixXd motionsOf(std::vector<cv::Vec3d> const& points, cv::Vec3d const& middle) {
  Eigen::MatrixXd motions(3 * static_cast<Eigen::Index>(points.size()), 6);
  for (std::size_t i = 0; i < points.size(); ++i) {
    Eigen::Vector3d const p((points[i] - middle).val);
    auto const row = 3 * static_cast<Eigen::Index>(i);
    motions.block<3, 3>(row, 0) = Eigen::Matrix3d::Identity();
    for (int axis = 0; axis < 3; ++axis) {
      motions.block<3, 1>(row, 3 + axis) = Eigen::Vector3d::Unit(axis).cross(p);
    }
  }
  motions.rightCols<3>() /= std::max(1e-300, motions.rightCols<3>().norm());
  Eigen::ColPivHouseholderQR<Eigen::MatrixXd> qr(motions);
  qr.setThreshold(1e-9);
  return qr.householderQ() * Eigen::MatrixXd::Identity(motions.rows(), qr.rank());
}

cv::Vec3d middleOf(std::vector<cv::Vec3d> const& points) {
  cv::Vec3d middle;
  for (cv::Vec3d const& point : points) {
    middle += point / static_cast<double>(points.size());
  }
  return middle;
}

/// What is left of the points' steps, a row a coordinate, when the rigid motions that fit best are taken off.
Eigen::MatrixXd shapePartOf(Eigen::MatrixXd const& steps, std::vector<cv::Vec3d> const& points) {
  Eigen::MatrixXd const motions = motionsOf(points, middleOf(points));
  return steps - motions * (motions.transpose() * steps);
}

/// Root mean square error of lengths that begin at the points.
void fillBars(PredictedError& error, SightGeometry const& geometry, CalibrationMatrix const& root,
              WorkingVolume const& volume, std::vector<cv::Vec3d> const& points) {
  constexpr std::array<std::array<double, 3>, 7> directions{
      {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}, {1, 1, -1}, {1, -1, 1}, {-1, 1, 1}}};
  double sum = 0;
  for (cv::Vec3d const& from : points) {
    ByCalibration const fromBy = geometry.byCalibration(from);
    for (auto const& direction : directions) {
      cv::Vec3d const along = cv::normalize(cv::Vec3d(direction[0], direction[1], direction[2]));
      cv::Vec3d const to = from + error.barLength * along;
      if (to[2] < volume.nearest || to[2] > volume.farthest || !geometry.isSeen(to)) {
        continue;
      }
      Eigen::RowVector3d const n(along.val);
      sum += (n * (geometry.byCalibration(to) - fromBy) * root).squaredNorm();
      ++error.barCount;
    }
  }
  error.bar = error.barCount > 0 ? std::sqrt(sum / error.barCount) : 0;
}

} // namespace

void checkVolume(WorkingVolume const& volume, char const* context) {
  if (!(volume.nearest > 0) || !(volume.farthest >= volume.nearest) || !std::isfinite(volume.farthest)) {
    std::ostringstream message;
    message << "A working volume must lie between two depths above 0 in their order, not between "
            << volume.nearest << " and " << volume.farthest;
    throw error(message.str(), context);
  }
}

std::vector<cv::Vec3d> pointsIn(WorkingVolume const& volume, SightGeometry const& geometry) {
  std::vector<cv::Vec3d> points;
  cv::Size const size = geometry.cameraSize();
  int const depths = volume.farthest > volume.nearest ? gridDepths : 1;
  for (int k = 0; k < depths; ++k) {
    double const share = depths > 1 ? static_cast<double>(k) / (depths - 1) : 0;
    double const depth = volume.nearest + share * (volume.farthest - volume.nearest);
    for (int row = 0; row < gridRows; ++row) {
      for (int col = 0; col < gridColumns; ++col) {
        cv::Point2d const pixel((col + 0.5) / gridColumns * (size.width - 1),
                                (row + 0.5) / gridRows * (size.height - 1));
        cv::Vec3d const point = depth * geometry.rayOf(pixel);
        if (geometry.isSeen(point)) {
          points.push_back(point);
        }
      }
    }
  }
  return points;
}

CalibrationMatrix shapeWeightOf(SightGeometry const& geometry, std::vector<cv::Vec3d> const& points) {
  auto const count = static_cast<Eigen::Index>(points.size());
  Eigen::MatrixXd steps(3 * count, calibrationParameterCount);
  for (Eigen::Index i = 0; i < count; ++i) {
    steps.middleRows<3>(3 * i) = geometry.byCalibration(points[static_cast<std::size_t>(i)]);
  }
  Eigen::MatrixXd const shape = shapePartOf(steps, points);
  return shape.transpose() * shape / static_cast<double>(count);
}

PredictedError predictedError(SightGeometry const& geometry, CalibrationMatrix const& covariance,
                              WorkingVolume const& volume, std::vector<cv::Vec3d> const& points,
                              double barLength) {
  PredictedError error;
  error.pointCount = static_cast<int>(points.size());
  error.barLength = barLength;
  error.volume = volume;
  CalibrationMatrix const root = rootOf(covariance);
  cv::Vec3d const middle = middleOf(points);
  auto const count = static_cast<Eigen::Index>(points.size());
  Eigen::MatrixXd errors(3 * count, calibrationParameterCount);
  Eigen::VectorXd sizes(3 * count);
  for (Eigen::Index i = 0; i < count; ++i) {
    cv::Vec3d const& point = points[static_cast<std::size_t>(i)];
    errors.middleRows<3>(3 * i) = geometry.byCalibration(point) * root;
    sizes.segment<3>(3 * i) = Eigen::Vector3d((point - middle).val);
  }
  error.raw = std::sqrt(errors.squaredNorm() / static_cast<double>(count));
  double const size2 = sizes.squaredNorm();
  error.scale = size2 > 0 ? (sizes.transpose() * errors).norm() / size2 : 0;
  Eigen::MatrixXd const shape = shapePartOf(errors, points);
  error.rigid = std::sqrt(shape.squaredNorm() / static_cast<double>(count));
  for (Eigen::Index i = 0; i < count; ++i) {
    double const here = shape.middleRows<3>(3 * i).norm();
    if (here > error.worst) {
      error.worst = here;
      error.worstPlace = points[static_cast<std::size_t>(i)];
    }
  }
  if (barLength > 0) {
    fillBars(error, geometry, root, volume, points);
  }
  return error;
}

} // namespace vorn::mv
