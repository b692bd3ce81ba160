// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/transform3d.hpp>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "core/error.hpp"

namespace vorn::mv {

Transform3D::Transform3D() : matrix_(cv::Matx44d::eye()) {}

Transform3D::Transform3D(cv::Matx33d const& R, cv::Vec3d const& T) : matrix_(math::createTransform(R, T)) {}

cv::Matx33d Transform3D::R3() const {
  return math::getR3(matrix_);
}

cv::Vec3d Transform3D::T3() const {
  return math::getT3(matrix_);
}

cv::Vec4d Transform3D::T4() const {
  return math::getT4(matrix_);
}

cv::Vec3d Transform3D::LogR() const {
  return math::getLogR_SO3(R3());
}

void Transform3D::setIdentity() {
  matrix_ = cv::Matx44d::eye();
}

void Transform3D::setZeros() {
  matrix_ = cv::Matx44d::zeros();
}

void Transform3D::setR3(cv::Matx33d const& R) {
  math::setR3(matrix_, R);
}

void Transform3D::setT3(cv::Vec3d const& T) {
  math::setT3(matrix_, T);
}

void Transform3D::toEuleurAngles(cv::Vec3d& sol1, cv::Vec3d& sol2) const {
  math::toEuleurAngles(R3(), sol1, sol2);
}

std::vector<cv::Point3f> Transform3D::transformPoints(std::vector<cv::Point3f> const& points) const {
  cv::Matx44f const M = matrix_;
  std::vector<cv::Point3f> result;
  result.reserve(points.size());
  for (cv::Point3f const& p : points) {
    auto const row = [&](int i) { return M(i, 0) * p.x + M(i, 1) * p.y + M(i, 2) * p.z + M(i, 3); };
    result.emplace_back(row(0), row(1), row(2));
  }
  return result;
}

Transform3D Transform3D::inverse() const {
  bool isInvertible = false;
  cv::Matx33d const inverse = R3().inv(cv::DECOMP_LU, &isInvertible);
  cv::Vec3d const translation = -(inverse * T3());
  double sum = 0.0;
  for (double const entry : inverse.val) {
    sum += entry * 0.0;
  }
  if (!isInvertible || sum != 0.0) {
    throw error("The transform has no inverse", "Transform3D");
  }
  return {inverse, translation};
}

Transform3D Transform3D::operator*(Transform3D const& other) const {
  return Transform3D(matrix_ * other.matrix_);
}

cv::Point3d Transform3D::operator*(cv::Point3d const& point) const {
  return cv::Point3d(R3() * cv::Vec3d(point.x, point.y, point.z) + T3());
}

} // namespace vorn::mv
