// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv::math {

/// A quaternion w + x i + y j + z k; 1 when new. A unit quaternion is a rotation.
class VORN_API Quaternion {
public:
  Quaternion() = default;
  /// scalar + i·i + j·j + k·k.
  Quaternion(double scalar, double i, double j, double k) : w(scalar), x(i), y(j), z(k) {}
  /// @param scalar scalar part
  /// @param v vector part
  Quaternion(double scalar, cv::Vec3d const& v) : w(scalar), x(v[0]), y(v[1]), z(v[2]) {}

  /// The Hamilton product.
  Quaternion operator*(Quaternion const& q) const;
  /// Scales all four parts.
  Quaternion& operator*=(double factor);
  /// Divides all four parts.
  Quaternion& operator/=(double divisor);
  /// Adds part by part.
  Quaternion& operator+=(Quaternion const& q);
  /// Subtracts part by part.
  Quaternion& operator-=(Quaternion const& q);

  /// The square root of the sum of the four squares.
  double norm() const;
  /// (w, -x, -y, -z).
  Quaternion conjugate() const;
  /// The quaternion whose product with this one is 1; not finite for zero.
  Quaternion reciprocal() const;
  /// This over its norm; not finite for zero.
  Quaternion unit() const;

  double w = 1; ///< The scalar part.
  double x = 0; ///< The vector part along i.
  double y = 0; ///< The vector part along j.
  double z = 0; ///< The vector part along k.
};

/// e to the power of q. Not finite when the vector part is zero.
VORN_API Quaternion exp(Quaternion const& q);
/// The natural logarithm of q, the inverse of `exp`. Not finite when the vector part is zero.
VORN_API Quaternion log(Quaternion const& q);
/// q to the power of t. Not finite when the vector part is zero.
VORN_API Quaternion pow(Quaternion const& q, double t);

} // namespace vorn::mv::math
