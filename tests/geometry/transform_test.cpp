// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/transform.hpp>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform3d.hpp>

namespace vorn::mv {
namespace {

/// x to y, y to z, z to x, and then along (10, 20, 30).
cv::Matx33d const turn(0, 0, 1, 1, 0, 0, 0, 1, 0);
cv::Vec3d const shift(10, 20, 30);
cv::Matx44d const turnAndShift(0, 0, 1, 10, 1, 0, 0, 20, 0, 1, 0, 30, 0, 0, 0, 1);

TEST(Transform, IsPutTogetherAndTakenApart) {
  EXPECT_EQ(math::createTransform(turn, shift), turnAndShift);
  EXPECT_EQ(math::getR3(turnAndShift), turn);
  EXPECT_EQ(math::getT3(turnAndShift), shift);
  EXPECT_EQ(math::getT4(turnAndShift), cv::Vec4d(10, 20, 30, 1));
  cv::Matx44f M = cv::Matx44f::all(9);
  math::setR3(M, cv::Matx33f(turn));
  math::setT3(M, cv::Vec3f(shift));
  EXPECT_EQ(M, cv::Matx44f(0, 0, 1, 10, 1, 0, 0, 20, 0, 1, 0, 30, 9, 9, 9, 9));
  EXPECT_EQ(math::getT4(M), cv::Vec4f(10, 20, 30, 9));
}

TEST(Transform, CarriesPointsVectorsAndClouds) {
  std::vector<cv::Point3f> const points{{1, 2, 3}, {-4, 5, 0.5F}};
  std::vector<cv::Point3f> const expected{{13, 21, 32}, {10.5F, 16, 35}};
  EXPECT_EQ(math::transform(points[0], turnAndShift), expected[0]);
  EXPECT_EQ(math::transformPoints(points, turnAndShift), expected);
  EXPECT_EQ(Transform3D(turn, shift).transformPoints(points), expected);
  EXPECT_TRUE(math::transformPoints({}, turnAndShift).empty());

  cv::Mat_<cv::Vec3f> frame(4, 7, cv::Vec3f(7, 7, 7));
  cv::Mat_<cv::Vec3f> inner = frame(cv::Rect(1, 1, 5, 2));
  inner.setTo(cv::Scalar(1, 2, 3));
  inner(1, 1) = cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN());
  cv::Mat_<cv::Vec3f> const carried = math::transformPointCloud(turnAndShift, inner);
  EXPECT_EQ(carried.size(), inner.size());
  EXPECT_EQ(carried(1, 0), cv::Vec3f(13, 21, 32));
  EXPECT_EQ(carried(0, 4), cv::Vec3f(13, 21, 32));
  EXPECT_TRUE(std::isnan(carried(1, 1)[0]));
  EXPECT_EQ(inner(1, 0), cv::Vec3f(1, 2, 3));
  EXPECT_TRUE(math::transformPointCloud(turnAndShift, cv::Mat_<cv::Vec3f>()).empty());
}

TEST(Transform, FarPointsKeepTheirFloatPrecision) {
  // Large terms that cancel: in float the sum would be off by a millimetre.
  cv::Matx44d const M = math::createTransform(math::rotZ(CV_PI / 4), {-100000 * std::sqrt(0.5), 0, 0});
  cv::Point3f const near = math::transform({100000, 0, 0}, M);
  EXPECT_NEAR(near.x, 0, 1e-10);
  EXPECT_NEAR(math::transformPoints({{100000, 0, 0}}, M)[0].x, 0, 1e-10);
}

TEST(Transform, HomographyDividesByTheThirdCoordinate) {
  cv::Mat const H = (cv::Mat_<double>(3, 3) << 2, 0, 1, 0, 3, 1, 0.5, 0, 1);
  EXPECT_EQ(math::transform(cv::Point2f(2, 4), H), cv::Point2f(2.5F, 6.5F));
  cv::Mat const affine = (cv::Mat_<float>(2, 3) << 2, 0, 1, 0, 3, 1);
  EXPECT_EQ(math::transform(cv::Point2f(2, 4), affine), cv::Point2f(5, 13));
  EXPECT_FALSE(std::isfinite(math::transform(cv::Point2f(-2, 0), H).x));
  for (cv::Mat const& wrong : {cv::Mat(), cv::Mat(4, 4, CV_64F), cv::Mat(2, 2, CV_64F), cv::Mat(3, 3, CV_32S),
                               cv::Mat(3, 3, CV_64FC2)}) {
    EXPECT_THROW(math::transform(cv::Point2f(), wrong), Exception);
  }
}

TEST(Transform3D, FollowsOneAnotherAndTurnsBack) {
  Transform3D const b_from_a(turn, shift);
  Transform3D const c_from_b(math::rot3RzRyRx(0.3, 0.2, 0.1), {1, 2, 3});
  cv::Point3d const inA(0.5, -7, 11);
  EXPECT_LT(cv::norm((c_from_b * b_from_a) * inA - c_from_b * (b_from_a * inA)), 1e-14);
  EXPECT_EQ(b_from_a * cv::Point3d(1, 2, 3),
            cv::Point3d(math::transform(cv::Point3f(1, 2, 3), turnAndShift)));
  EXPECT_LT(cv::norm(c_from_b.inverse() * (c_from_b * inA) - inA), 1e-14);
  EXPECT_LT(cv::norm((c_from_b * c_from_b.inverse()).matrix() - cv::Matx44d::eye()), 1e-14);
  // A mean of rotations is none: its transpose would not undo it.
  cv::Matx33d const mean = 0.5 * (math::rotZ(0.2) + math::rotZ(-0.2));
  EXPECT_LT(cv::norm(Transform3D(mean, shift).inverse() * (Transform3D(mean, shift) * inA) - inA), 1e-13);
  Transform3D nothing;
  nothing.setZeros();
  EXPECT_THROW(static_cast<void>(nothing.inverse()), Exception);
  Transform3D const broken(cv::Matx33d::all(std::numeric_limits<double>::quiet_NaN()), shift);
  EXPECT_THROW(static_cast<void>(broken.inverse()), Exception);
}

TEST(Transform3D, HoldsOneMatrix) {
  Transform3D t;
  EXPECT_EQ(t.matrix(), cv::Matx44d::eye());
  t.setR3(turn);
  t.setT3(shift);
  EXPECT_EQ(t.matrix(), turnAndShift);
  EXPECT_EQ(t.R3(), turn);
  EXPECT_EQ(t.T3(), shift);
  EXPECT_EQ(t.T4(), cv::Vec4d(10, 20, 30, 1));
  EXPECT_NEAR(t.LogR()[0], 1 / std::sqrt(3.), 1e-15);
  cv::Vec3d angles;
  cv::Vec3d others;
  Transform3D(math::rot3RzRyRx(0.3, 0.2, 0.1), {}).toEuleurAngles(angles, others);
  EXPECT_LT(cv::norm(angles - cv::Vec3d(0.1, 0.2, 0.3)), 1e-15);
  t.setZeros();
  EXPECT_EQ(t.matrix(), cv::Matx44d::zeros());
  t.setIdentity();
  EXPECT_EQ(t.matrix(), cv::Matx44d::eye());
}

} // namespace
} // namespace vorn::mv
