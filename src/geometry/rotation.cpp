// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/rotation.hpp>

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace vorn::mv::math {

namespace {

enum Axis { X, Y, Z };

cv::Matx33d elementary(Axis axis, double angle) {
  switch (axis) {
  case X:
    return rotX(angle);
  case Y:
    return rotY(angle);
  default:
    return rotZ(angle);
  }
}

template <Axis first, Axis middle, Axis last>
cv::Matx33d product(double a, double b, double c) {
  return elementary(first, a) * elementary(middle, b) * elementary(last, c);
}

/// Below this length the two entries that hold the outer angle are nothing but rounding: a rotation matrix
/// with so short a pair has 1 as its third entry, to the last bit.
constexpr double lockedLength = 1e-12;

/// The entry that holds the middle angle, made exactly -1 or 1 where rounding alone keeps it from a lock.
double snapToLock(double entry, double other1, double other2) {
  return std::hypot(other1, other2) < lockedLength ? std::round(entry) : entry;
}

/// Angles of R = R_i(a) R_j(b) R_k(c). Where (i, j, k) is an odd permutation the same formulas hold for the
/// negated angles, since mirroring turns every rotation round.
template <Axis i, Axis j, Axis k>
cv::Vec3d taitBryanAngles(cv::Matx33d const& R) {
  constexpr double parity = (i + 1) % 3 == j ? 1.0 : -1.0;
  double const sinMiddle = snapToLock(R(i, k), R(i, i), R(i, j));
  if (sinMiddle <= -1) {
    return {-parity * std::atan2(R(j, i), R(j, j)), -parity * CV_PI / 2, 0};
  }
  if (sinMiddle >= 1) {
    return {parity * std::atan2(R(j, i), R(j, j)), parity * CV_PI / 2, 0};
  }
  return {std::atan2(-parity * R(j, k), R(k, k)), parity * std::asin(sinMiddle),
          std::atan2(-parity * R(i, j), R(i, i))};
}

/// Angles of R = R_i(a) R_j(b) R_i(c), with b in [0, pi].
template <Axis i, Axis j>
cv::Vec3d properEulerAngles(cv::Matx33d const& R) {
  constexpr int k = 3 - i - j;
  constexpr double parity = (i + 1) % 3 == j ? 1.0 : -1.0;
  double const cosMiddle = snapToLock(R(i, i), R(i, j), R(i, k));
  if (cosMiddle >= 1) {
    return {std::atan2(-parity * R(j, k), R(j, j)), 0, 0};
  }
  if (cosMiddle > -1) {
    return {std::atan2(R(j, i), -parity * R(k, i)), std::acos(cosMiddle),
            std::atan2(R(i, j), parity * R(i, k))};
  }
  return {-std::atan2(-parity * R(j, k), R(j, j)), CV_PI, 0};
}

/// The axis of a rotation by pi, from R = 2 u u' - I: the largest component first, so that the division is
/// safe.
cv::Vec3d halfTurnAxis(cv::Matx33d const& R) {
  constexpr double tooSmall = 0.0001;
  constexpr double diagonal = 0.7071068;
  double const xx = (R(0, 0) + 1) / 2;
  double const yy = (R(1, 1) + 1) / 2;
  double const zz = (R(2, 2) + 1) / 2;
  double const xy = (R(0, 1) + R(1, 0)) / 4;
  double const xz = (R(0, 2) + R(2, 0)) / 4;
  double const yz = (R(1, 2) + R(2, 1)) / 4;
  if (xx > yy && xx > zz) {
    double const x = std::sqrt(xx);
    return xx < tooSmall ? cv::Vec3d(0, diagonal, diagonal) : cv::Vec3d(x, xy / x, xz / x);
  }
  if (yy > zz) {
    double const y = std::sqrt(yy);
    return yy < tooSmall ? cv::Vec3d(diagonal, 0, diagonal) : cv::Vec3d(xy / y, y, yz / y);
  }
  double const z = std::sqrt(zz);
  return zz < tooSmall ? cv::Vec3d(diagonal, diagonal, 0) : cv::Vec3d(xz / z, yz / z, z);
}

/// Twice the sine of the angle times the axis.
cv::Vec3d skewPart(cv::Matx33d const& R) {
  return {R(2, 1) - R(1, 2), R(0, 2) - R(2, 0), R(1, 0) - R(0, 1)};
}

double trace(cv::Matx33d const& R) {
  return R(0, 0) + R(1, 1) + R(2, 2);
}

cv::Vec4d axisAngle(cv::Vec3d const& axis, double angle) {
  cv::Vec3d const unit = axis / cv::norm(axis);
  return {unit[0], unit[1], unit[2], angle};
}

} // namespace

cv::Matx33d rotX(double angle) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  return {1, 0, 0, 0, c, -s, 0, s, c};
}

cv::Matx33d rotY(double angle) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  return {c, 0, s, 0, 1, 0, -s, 0, c};
}

cv::Matx33d rotZ(double angle) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  return {c, -s, 0, s, c, 0, 0, 0, 1};
}

// clang-format off
cv::Matx33d rot3RxRyRx(double a, double b, double c) { return product<X, Y, X>(a, b, c); }
cv::Matx33d rot3RxRyRz(double a, double b, double c) { return product<X, Y, Z>(a, b, c); }
cv::Matx33d rot3RxRzRx(double a, double b, double c) { return product<X, Z, X>(a, b, c); }
cv::Matx33d rot3RxRzRy(double a, double b, double c) { return product<X, Z, Y>(a, b, c); }
cv::Matx33d rot3RyRxRy(double a, double b, double c) { return product<Y, X, Y>(a, b, c); }
cv::Matx33d rot3RyRxRz(double a, double b, double c) { return product<Y, X, Z>(a, b, c); }
cv::Matx33d rot3RyRzRx(double a, double b, double c) { return product<Y, Z, X>(a, b, c); }
cv::Matx33d rot3RyRzRy(double a, double b, double c) { return product<Y, Z, Y>(a, b, c); }
cv::Matx33d rot3RzRxRy(double a, double b, double c) { return product<Z, X, Y>(a, b, c); }
cv::Matx33d rot3RzRxRz(double a, double b, double c) { return product<Z, X, Z>(a, b, c); }
cv::Matx33d rot3RzRyRx(double a, double b, double c) { return product<Z, Y, X>(a, b, c); }
cv::Matx33d rot3RzRyRz(double a, double b, double c) { return product<Z, Y, Z>(a, b, c); }

cv::Vec3d euleurRxRyRx(cv::Matx33d const& R) { return properEulerAngles<X, Y>(R); }
cv::Vec3d euleurRxRyRz(cv::Matx33d const& R) { return taitBryanAngles<X, Y, Z>(R); }
cv::Vec3d euleurRxRzRx(cv::Matx33d const& R) { return properEulerAngles<X, Z>(R); }
cv::Vec3d euleurRxRzRy(cv::Matx33d const& R) { return taitBryanAngles<X, Z, Y>(R); }
cv::Vec3d euleurRyRxRy(cv::Matx33d const& R) { return properEulerAngles<Y, X>(R); }
cv::Vec3d euleurRyRxRz(cv::Matx33d const& R) { return taitBryanAngles<Y, X, Z>(R); }
cv::Vec3d euleurRyRzRx(cv::Matx33d const& R) { return taitBryanAngles<Y, Z, X>(R); }
cv::Vec3d euleurRyRzRy(cv::Matx33d const& R) { return properEulerAngles<Y, Z>(R); }
cv::Vec3d euleurRzRxRy(cv::Matx33d const& R) { return taitBryanAngles<Z, X, Y>(R); }
cv::Vec3d euleurRzRxRz(cv::Matx33d const& R) { return properEulerAngles<Z, X>(R); }
cv::Vec3d euleurRzRyRx(cv::Matx33d const& R) { return taitBryanAngles<Z, Y, X>(R); }
cv::Vec3d euleurRzRyRz(cv::Matx33d const& R) { return properEulerAngles<Z, Y>(R); }
// clang-format on

cv::Matx33d rot3(cv::Vec3d const& axis, double angle) {
  cv::Matx33d const K = skew3(axis / cv::norm(axis));
  return cv::Matx33d::eye() + std::sin(angle) * K + (1 - std::cos(angle)) * (K * K);
}

cv::Matx33d skew3(cv::Vec3d const& v) {
  return {0, -v[2], v[1], v[2], 0, -v[0], -v[1], v[0], 0};
}

cv::Vec4d getRotationAxisAngle(cv::Matx33d const& R) {
  constexpr double symmetryTolerance = 0.0001;
  constexpr double identityTolerance = 0.001;
  auto const near = [&R](int i, int j, double sign, double tolerance) {
    return std::abs(R(i, j) + sign * R(j, i)) < tolerance;
  };
  auto const nearAll = [&near](double sign, double tolerance) {
    return near(0, 1, sign, tolerance) && near(0, 2, sign, tolerance) && near(1, 2, sign, tolerance);
  };
  if (nearAll(-1, symmetryTolerance)) {
    if (nearAll(1, identityTolerance) && std::abs(trace(R) - 3) < identityTolerance) {
      return {1, 0, 0, 0};
    }
    return axisAngle(halfTurnAxis(R), CV_PI);
  }
  cv::Vec3d axis = skewPart(R);
  double const length = cv::norm(axis);
  axis /= length < identityTolerance ? 1.0 : length;
  // Rounding may carry the cosine of a matrix that came from floats beyond its range.
  return axisAngle(axis, std::acos(std::clamp((trace(R) - 1) / 2, -1.0, 1.0)));
}

cv::Vec4d getRotationAxisAngle(cv::Matx44d const& M) {
  return getRotationAxisAngle(M.get_minor<3, 3>(0, 0));
}

cv::Vec3d getLogR_SO3(cv::Matx33d const& R) {
  double const angle = std::acos((trace(R) - 1) * 0.5);
  return skewPart(R) * (0.5 / std::sin(angle));
}

void toEuleurAngles(cv::Matx33d const& R, cv::Vec3d& sol1, cv::Vec3d& sol2) {
  double const R20 = R(2, 0);
  if (R20 == -1 || R20 == 1) {
    double const psi = std::atan2(-R20 * R(0, 1), -R20 * R(0, 2)) + CV_PI / 2;
    sol1 = sol2 = cv::Vec3d(psi, -R20 * CV_PI / 2, 0);
    return;
  }
  double const theta = -std::asin(R20);
  sol1 = cv::Vec3d(std::atan2(R(2, 1), R(2, 2)), theta, std::atan2(R(1, 0), R(0, 0)));
  sol2 = cv::Vec3d(std::atan2(-R(2, 1), -R(2, 2)), CV_PI - theta, std::atan2(-R(1, 0), -R(0, 0)));
}

} // namespace vorn::mv::math
