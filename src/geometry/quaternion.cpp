// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/quaternion.hpp>

#include <cmath>

namespace vorn::mv::math {

namespace {

cv::Vec3d vectorPart(Quaternion const& q) {
  return {q.x, q.y, q.z};
}

double length(cv::Vec3d const& v) {
  return std::sqrt(v.dot(v));
}

} // namespace

Quaternion Quaternion::operator*(Quaternion const& q) const {
  return {w * q.w - (x * q.x + y * q.y + z * q.z), w * q.x + x * q.w + y * q.z - z * q.y,
          w * q.y + y * q.w + z * q.x - x * q.z, w * q.z + z * q.w + x * q.y - y * q.x};
}

Quaternion& Quaternion::operator*=(double factor) {
  w *= factor;
  x *= factor;
  y *= factor;
  z *= factor;
  return *this;
}

Quaternion& Quaternion::operator/=(double divisor) {
  w /= divisor;
  x /= divisor;
  y /= divisor;
  z /= divisor;
  return *this;
}

Quaternion& Quaternion::operator+=(Quaternion const& q) {
  w += q.w;
  x += q.x;
  y += q.y;
  z += q.z;
  return *this;
}

Quaternion& Quaternion::operator-=(Quaternion const& q) {
  w -= q.w;
  x -= q.x;
  y -= q.y;
  z -= q.z;
  return *this;
}

double Quaternion::norm() const {
  return std::sqrt(w * w + x * x + y * y + z * z);
}

Quaternion Quaternion::conjugate() const {
  return {w, -x, -y, -z};
}

Quaternion Quaternion::reciprocal() const {
  double const n = norm();
  Quaternion result = conjugate();
  result *= (1 / n) / n;
  return result;
}

Quaternion Quaternion::unit() const {
  Quaternion result = *this;
  result /= norm();
  return result;
}

Quaternion exp(Quaternion const& q) {
  double const angle = length(vectorPart(q));
  double const scale = std::exp(q.w);
  return {scale * std::cos(angle), vectorPart(q) * (scale * (std::sin(angle) / angle))};
}

Quaternion log(Quaternion const& q) {
  double const n = q.norm();
  double const angle = std::acos(q.w / n);
  return {std::log(n), vectorPart(q) * (angle / length(vectorPart(q)))};
}

Quaternion pow(Quaternion const& q, double t) {
  double const n = q.norm();
  double const angle = std::acos(q.w / n) * t;
  double const scale = std::pow(n, t);
  cv::Vec3d const axis = vectorPart(q) * (1 / length(vectorPart(q)));
  return {scale * std::cos(angle), axis * (scale * std::sin(angle))};
}

} // namespace vorn::mv::math
