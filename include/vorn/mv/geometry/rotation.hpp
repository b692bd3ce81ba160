// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>

/// Rotations: 3 x 3 matrices, Euler angles in all twelve axis orders, axis and angle. All angles are radians.
namespace vorn::mv::math {

/// The rotation by `angle` about the x axis: rows (1, 0, 0), (0, cos, -sin), (0, sin, cos).
VORN_API cv::Matx33d rotX(double angle);
/// The rotation by `angle` about the y axis: rows (cos, 0, sin), (0, 1, 0), (-sin, 0, cos).
VORN_API cv::Matx33d rotY(double angle);
/// The rotation by `angle` about the z axis: rows (cos, -sin, 0), (sin, cos, 0), (0, 0, 1).
VORN_API cv::Matx33d rotZ(double angle);

/// @name The product of three elementary rotations, in the order of the name
/// `rot3RxRyRz(a, b, c)` is rotX(a) * rotY(b) * rotZ(c).
/// @{

/// rotX(a) * rotY(b) * rotX(c).
VORN_API cv::Matx33d rot3RxRyRx(double a, double b, double c);
/// rotX(a) * rotY(b) * rotZ(c).
VORN_API cv::Matx33d rot3RxRyRz(double a, double b, double c);
/// rotX(a) * rotZ(b) * rotX(c).
VORN_API cv::Matx33d rot3RxRzRx(double a, double b, double c);
/// rotX(a) * rotZ(b) * rotY(c).
VORN_API cv::Matx33d rot3RxRzRy(double a, double b, double c);
/// rotY(a) * rotX(b) * rotY(c).
VORN_API cv::Matx33d rot3RyRxRy(double a, double b, double c);
/// rotY(a) * rotX(b) * rotZ(c).
VORN_API cv::Matx33d rot3RyRxRz(double a, double b, double c);
/// rotY(a) * rotZ(b) * rotX(c).
VORN_API cv::Matx33d rot3RyRzRx(double a, double b, double c);
/// rotY(a) * rotZ(b) * rotY(c).
VORN_API cv::Matx33d rot3RyRzRy(double a, double b, double c);
/// rotZ(a) * rotX(b) * rotY(c).
VORN_API cv::Matx33d rot3RzRxRy(double a, double b, double c);
/// rotZ(a) * rotX(b) * rotZ(c).
VORN_API cv::Matx33d rot3RzRxRz(double a, double b, double c);
/// rotZ(a) * rotY(b) * rotX(c).
VORN_API cv::Matx33d rot3RzRyRx(double a, double b, double c);
/// rotZ(a) * rotY(b) * rotZ(c).
VORN_API cv::Matx33d rot3RzRyRz(double a, double b, double c);
/// @}

/// @name The three angles whose `rot3` product of the same order is R
/// The middle angle lies in [-pi/2, pi/2] where the three axes differ and in [0, pi] where the first and the
/// last are the same. At its ends (where only the sum or the difference of the outer two is determined) the
/// last angle is 0 and the first takes the rest.
/// @{

/// The angles of `rot3RxRyRx`.
VORN_API cv::Vec3d euleurRxRyRx(cv::Matx33d const& R);
/// The angles of `rot3RxRyRz`.
VORN_API cv::Vec3d euleurRxRyRz(cv::Matx33d const& R);
/// The angles of `rot3RxRzRx`.
VORN_API cv::Vec3d euleurRxRzRx(cv::Matx33d const& R);
/// The angles of `rot3RxRzRy`.
VORN_API cv::Vec3d euleurRxRzRy(cv::Matx33d const& R);
/// The angles of `rot3RyRxRy`.
VORN_API cv::Vec3d euleurRyRxRy(cv::Matx33d const& R);
/// The angles of `rot3RyRxRz`.
VORN_API cv::Vec3d euleurRyRxRz(cv::Matx33d const& R);
/// The angles of `rot3RyRzRx`.
VORN_API cv::Vec3d euleurRyRzRx(cv::Matx33d const& R);
/// The angles of `rot3RyRzRy`.
VORN_API cv::Vec3d euleurRyRzRy(cv::Matx33d const& R);
/// The angles of `rot3RzRxRy`.
VORN_API cv::Vec3d euleurRzRxRy(cv::Matx33d const& R);
/// The angles of `rot3RzRxRz`.
VORN_API cv::Vec3d euleurRzRxRz(cv::Matx33d const& R);
/// The angles of `rot3RzRyRx`.
VORN_API cv::Vec3d euleurRzRyRx(cv::Matx33d const& R);
/// The angles of `rot3RzRyRz`.
VORN_API cv::Vec3d euleurRzRyRz(cv::Matx33d const& R);
/// @}

/// The rotation by `angle` about any axis (Rodrigues' formula). The axis need not be of unit length; a zero
/// axis gives non-finite entries.
VORN_API cv::Matx33d rot3(cv::Vec3d const& axis, double angle);

/// The cross-product matrix of v: skew3(v) * x is v x x.
VORN_API cv::Matx33d skew3(cv::Vec3d const& v);

/// Axis and angle of a rotation as (x, y, z, angle), the axis of unit length, the angle in [0, pi].
///
/// The identity gives (1, 0, 0, 0). A matrix that is symmetric within 1e-4 counts as a rotation by 0 or by
/// pi.
VORN_API cv::Vec4d getRotationAxisAngle(cv::Matx33d const& R);
/// Axis and angle of the rotation block.
VORN_API cv::Vec4d getRotationAxisAngle(cv::Matx44d const& M);

/// The unit rotation axis, taken from the skew part of R over twice the sine of its angle.
///
/// It is not multiplied by the angle. At angles 0 and pi the sine is zero and the result is not finite.
VORN_API cv::Vec3d getLogR_SO3(cv::Matx33d const& R);

/// Both triples (psi, theta, phi) of angles about x, y and z with R = rotZ(phi) * rotY(theta) * rotX(psi).
///
/// When R(2, 0) is exactly -1 or 1 only one angle is determined: then theta is pi/2 or -pi/2, phi is 0, psi
/// is atan2(R01, R02) + pi/2 or atan2(-R01, -R02) + pi/2, and both solutions are the same. (The pi/2 in psi
/// is this function's convention: there psi is not the angle that rebuilds R.)
VORN_API void toEuleurAngles(cv::Matx33d const& R, cv::Vec3d& sol1, cv::Vec3d& sol2);

} // namespace vorn::mv::math
