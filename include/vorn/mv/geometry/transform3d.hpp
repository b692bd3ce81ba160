// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// A rigid transform held as a 4 x 4 matrix of doubles; the identity when new.
class VORN_API Transform3D {
public:
  Transform3D();
  /// @param R rotation
  /// @param T translation
  Transform3D(cv::Matx33d const& R, cv::Vec3d const& T);

  /// The transform of a matrix, whatever that holds.
  explicit Transform3D(cv::Matx44d const& matrix) : matrix_(matrix) {}

  /// The 4 x 4 matrix.
  cv::Matx44d const& matrix() const { return matrix_; }
  /// The rotation block.
  cv::Matx33d R3() const;
  /// The translation.
  cv::Vec3d T3() const;
  /// The fourth column: the translation and 1.
  cv::Vec4d T4() const;
  /// The unit rotation axis; see math::getLogR_SO3.
  cv::Vec3d LogR() const;

  /// Carries every point to itself from here on.
  void setIdentity();
  /// Sets all sixteen entries to 0.
  void setZeros();
  /// Sets the rotation block and leaves the rest.
  void setR3(cv::Matx33d const& R);
  /// Sets the translation and leaves the rest.
  void setT3(cv::Vec3d const& T);

  /// Both triples of angles about x, y and z; see math::toEuleurAngles.
  void toEuleurAngles(cv::Vec3d& sol1, cv::Vec3d& sol2) const;

  /// The points carried by the transform, in their order, reckoned in float.
  std::vector<cv::Point3f> transformPoints(std::vector<cv::Point3f> const& points) const;

  /// The transform that undoes this one: with `b_from_a`, the result is `a_from_b`.
  ///
  /// The rotation block is inverted as it is, so that the product is the identity to rounding even where the
  /// block is no exact rotation.
  /// @throws Exception "The transform has no inverse" when the block is singular or not finite
  [[nodiscard]] Transform3D inverse() const;

  /// This transform after another one: with `c_from_b` and `b_from_a`, `c_from_b * b_from_a` is `c_from_a`.
  [[nodiscard]] Transform3D operator*(Transform3D const& other) const;

  /// The point carried by the transform, R p + t, in double.
  [[nodiscard]] cv::Point3d operator*(cv::Point3d const& point) const;

private:
  cv::Matx44d matrix_;
};

} // namespace vorn::mv
