// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/rotation.hpp>

#include <array>
#include <cmath>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

namespace vorn::mv::math {
namespace {

/// A few roundings of doubles of size 1.
constexpr double rounding = 1e-14;
/// asin and acos lose half of the digits close to their ends.
constexpr double roundingNearTheEnds = 3e-8;

double difference(cv::Matx33d const& a, cv::Matx33d const& b) {
  return cv::norm(a - b, cv::NORM_INF);
}

/// The rotation of an axis vector with the angle as its length, by OpenCV.
cv::Matx33d rotationOf(cv::Vec3d const& axisTimesAngle) {
  cv::Matx33d R;
  cv::Rodrigues(axisTimesAngle, R);
  return R;
}

struct Order {
  char const* name;
  cv::Matx33d (*build)(double, double, double);
  cv::Vec3d (*angles)(cv::Matx33d const&);

  /// The middle angles at which the outer two axes coincide: the ends of its range.
  std::array<double, 2> locks() const {
    bool const isProper = name[1] == name[5];
    return {isProper ? 0.0 : -CV_PI / 2, isProper ? CV_PI : CV_PI / 2};
  }
  /// The product of elementary rotations that the name asks for, made by OpenCV.
  cv::Matx33d reference(cv::Vec3d const& abc) const {
    auto R = cv::Matx33d::eye();
    for (int i = 0; i < 3; ++i) {
      cv::Vec3d axis;
      axis[name[1 + 2 * i] - 'x'] = abc[i];
      R = R * rotationOf(axis);
    }
    return R;
  }
};

class EulerOrder : public testing::TestWithParam<Order> {};

TEST_P(EulerOrder, MultipliesInTheOrderOfTheName) {
  cv::Vec3d const angles(0.3, -1.1, 2.5);
  EXPECT_LT(difference(GetParam().build(0.3, -1.1, 2.5), GetParam().reference(angles)), rounding);
}

TEST_P(EulerOrder, GivesBackTheAnglesInsideTheirRange) {
  double const lowest = GetParam().locks()[0];
  for (double a = -3; a < 3.1; a += 0.5) {
    for (double step = 0.1; step < CV_PI; step += 0.3) {
      for (double c = -3; c < 3.1; c += 0.5) {
        cv::Vec3d const angles(a, lowest + step, c);
        cv::Vec3d const found = GetParam().angles(GetParam().reference(angles));
        ASSERT_LT(cv::norm(found - angles), 100 * rounding) << found << " for " << angles;
      }
    }
  }
}

TEST_P(EulerOrder, RebuildsTheRotationAtAndNearTheLocks) {
  for (double lock : GetParam().locks()) {
    for (double a = -3; a < 3.1; a += 0.25) {
      for (double off : {0.0, 1e-9, -1e-9, 1e-5}) {
        cv::Matx33d const R = GetParam().reference({a, lock + off, 0.7});
        cv::Vec3d const found = GetParam().angles(R);
        ASSERT_LT(difference(GetParam().reference(found), R), roundingNearTheEnds) << found;
      }
    }
  }
}

TEST_P(EulerOrder, LeavesTheLastAngleZeroAtALock) {
  int const first = GetParam().name[1] - 'x';
  int const last = GetParam().name[5] - 'x';
  for (double lock : GetParam().locks()) {
    for (double a = -3; a < 3.1; a += 0.25) {
      cv::Matx33d R = GetParam().reference({a, lock, 0});
      for (int i = 0; i < 3; ++i) { // exact ones and zeros, which rounding alone would not leave
        R(first, i) = std::round(R(first, i));
        R(i, last) = std::round(R(i, last));
      }
      cv::Vec3d const found = GetParam().angles(R);
      EXPECT_LT(cv::norm(found - cv::Vec3d(a, lock, 0)), rounding) << found;
      EXPECT_EQ(found[2], 0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rotation, EulerOrder,
    testing::Values(Order{"RxRyRx", rot3RxRyRx, euleurRxRyRx}, Order{"RxRyRz", rot3RxRyRz, euleurRxRyRz},
                    Order{"RxRzRx", rot3RxRzRx, euleurRxRzRx}, Order{"RxRzRy", rot3RxRzRy, euleurRxRzRy},
                    Order{"RyRxRy", rot3RyRxRy, euleurRyRxRy}, Order{"RyRxRz", rot3RyRxRz, euleurRyRxRz},
                    Order{"RyRzRx", rot3RyRzRx, euleurRyRzRx}, Order{"RyRzRy", rot3RyRzRy, euleurRyRzRy},
                    Order{"RzRxRy", rot3RzRxRy, euleurRzRxRy}, Order{"RzRxRz", rot3RzRxRz, euleurRzRxRz},
                    Order{"RzRyRx", rot3RzRyRx, euleurRzRyRx}, Order{"RzRyRz", rot3RzRyRz, euleurRzRyRz}),
    [](auto const& order) { return std::string(order.param.name); });

TEST(Rot3, AgreesWithRodrigues) {
  for (cv::Vec3d const& axis : {cv::Vec3d(1, 0, 0), cv::Vec3d(1, -2, 3), cv::Vec3d(-0.1, 0.1, 0.01)}) {
    for (double angle : {-2.0, 0.0, 1e-6, 1.0, 3.0}) {
      EXPECT_LT(difference(rot3(axis, angle), rotationOf(axis * (angle / cv::norm(axis)))), rounding);
    }
  }
  EXPECT_FALSE(std::isfinite(rot3({0, 0, 0}, 1)(0, 1)));
  EXPECT_EQ(skew3({1, 2, 3}) * cv::Vec3d(4, 5, 6), cv::Vec3d(1, 2, 3).cross({4, 5, 6}));
}

TEST(AxisAngle, RebuildsRotationsByAnyAngle) {
  for (cv::Vec3d const& axis : {cv::Vec3d(1, 0, 0), cv::Vec3d(0, -1, 0), cv::Vec3d(0.6, 0, -0.8),
                                cv::Vec3d(2, -1, 2) / 3, cv::Vec3d(-1, 5, 3) / std::sqrt(35.)}) {
    for (double angle : {0.01, 0.5, 1.5, 3.0, 3.14}) {
      cv::Vec4d const found = getRotationAxisAngle(rotationOf(axis * angle));
      cv::Vec4d const expected(axis[0], axis[1], axis[2], angle);
      // The angle comes from its cosine, which is flat at both ends.
      EXPECT_LT(cv::norm(found - expected), 1e-11) << found << " for " << expected;
    }
  }
}

TEST(AxisAngle, TakesAMatrixThatRoundingMadeLargerThanARotation) {
  // The cosine that the trace gives is above 1, as it comes out of floats.
  cv::Vec4d const found = math::getRotationAxisAngle(math::rotZ(1e-3) * (1 + 2e-6));
  EXPECT_LT(cv::norm(found - cv::Vec4d(0, 0, 1, 0)), 1e-12);
}

TEST(AxisAngle, KnowsTheIdentityAndHalfTurns) {
  EXPECT_EQ(getRotationAxisAngle(cv::Matx33d::eye()), cv::Vec4d(1, 0, 0, 0));
  EXPECT_EQ(getRotationAxisAngle(cv::Matx44d::eye()), cv::Vec4d(1, 0, 0, 0));
  EXPECT_EQ(getRotationAxisAngle(cv::Matx33d(-1, 0, 0, 0, -1, 0, 0, 0, 1)), cv::Vec4d(0, 0, 1, CV_PI));
  for (cv::Vec3d const& u :
       {cv::Vec3d(1, 0, 0), cv::Vec3d(0, 1, 0), cv::Vec3d(2, 1, -2) / 3, cv::Vec3d(-1, 2, 2) / 3,
        cv::Vec3d(2, 2, 1) / 3, cv::Vec3d(6, 2, 3) / 7, cv::Vec3d(2, -6, 3) / 7, cv::Vec3d(3, 2, 6) / 7,
        cv::Vec3d(1, 1, 1) / std::sqrt(3.)}) {
    cv::Matx33d const R = 2 * u * u.t() - cv::Matx33d::eye();
    cv::Vec4d const found = getRotationAxisAngle(R);
    EXPECT_EQ(found[3], CV_PI);
    EXPECT_NEAR(std::abs(u.dot({found[0], found[1], found[2]})), 1, rounding) << found << " for " << u;
  }
  cv::Matx33d nearlySymmetric = cv::Matx33d::eye();
  nearlySymmetric(0, 1) = 0.00009;
  EXPECT_EQ(getRotationAxisAngle(nearlySymmetric), cv::Vec4d(1, 0, 0, 0));
}

TEST(LogR, IsTheUnitAxis) {
  EXPECT_LT(cv::norm(getLogR_SO3(rotZ(0.3)) - cv::Vec3d(0, 0, 1)), 10 * rounding);
  cv::Vec3d const axis = cv::Vec3d(2, -1, 2) / 3;
  EXPECT_LT(cv::norm(getLogR_SO3(rotationOf(axis * 2.0)) - axis), 10 * rounding);
  EXPECT_FALSE(std::isfinite(getLogR_SO3(cv::Matx33d::eye())[0]));
}

TEST(ToEuleurAngles, BothSolutionsRebuildTheRotation) {
  for (cv::Vec3d const& v : {cv::Vec3d(0.1, 0.2, 0.3), cv::Vec3d(-2, 1, 0.5), cv::Vec3d(1, 2, -1)}) {
    cv::Matx33d const R = rotationOf(v);
    cv::Vec3d sol1;
    cv::Vec3d sol2;
    toEuleurAngles(R, sol1, sol2);
    EXPECT_NE(sol1, sol2);
    EXPECT_NEAR(sol1[1] + sol2[1], CV_PI, rounding);
    for (cv::Vec3d const& s : {sol1, sol2}) {
      EXPECT_LT(difference(rot3RzRyRx(s[2], s[1], s[0]), R), rounding);
    }
  }
}

TEST(ToEuleurAngles, AddsAQuarterTurnAtTheLocks) {
  double const a = 0.4;
  cv::Vec3d sol1;
  cv::Vec3d sol2;
  toEuleurAngles({0, std::sin(a), std::cos(a), 0, std::cos(a), -std::sin(a), -1, 0, 0}, sol1, sol2);
  EXPECT_LT(cv::norm(sol1 - cv::Vec3d(a + CV_PI / 2, CV_PI / 2, 0)), rounding);
  EXPECT_EQ(sol1, sol2);
  toEuleurAngles({0, -std::sin(a), -std::cos(a), 0, std::cos(a), -std::sin(a), 1, 0, 0}, sol1, sol2);
  EXPECT_LT(cv::norm(sol1 - cv::Vec3d(a + CV_PI / 2, -CV_PI / 2, 0)), rounding);
  EXPECT_EQ(sol1, sol2);
}

} // namespace
} // namespace vorn::mv::math
