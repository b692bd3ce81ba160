// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/quaternion.hpp>

#include <cmath>
#include <complex>

#include <gtest/gtest.h>

#include <vorn/mv/geometry/rotation.hpp>

namespace vorn::mv::math {
namespace {

/// A few roundings of doubles of size 10.
constexpr double rounding = 1e-14;

void expectNear(Quaternion const& a, Quaternion const& b) {
  EXPECT_LT(cv::norm(cv::Vec4d(a.w, a.x, a.y, a.z) - cv::Vec4d(b.w, b.x, b.y, b.z)), rounding)
      << a.w << " " << a.x << " " << a.y << " " << a.z;
}

Quaternion const one;
Quaternion const i(0, 1, 0, 0);
Quaternion const j(0, 0, 1, 0);
Quaternion const k(0, cv::Vec3d(0, 0, 1));
Quaternion const sample(0.5, cv::Vec3d(-1, 2, 0.25));

TEST(Quaternion, MultipliesByHamiltonsRules) {
  Quaternion const minusOne(-1, 0, 0, 0);
  for (Quaternion const& q : {i * i, j * j, k * k, i * j * k}) {
    expectNear(q, minusOne);
  }
  expectNear(i * j, k);
  expectNear(j * k, i);
  expectNear(k * i, j);
  expectNear(j * i, k.conjugate());
  expectNear(sample * sample.reciprocal(), one);
  EXPECT_NEAR((sample * sample.conjugate()).w, sample.norm() * sample.norm(), rounding);
  EXPECT_NEAR(sample.unit().norm(), 1, rounding);
}

TEST(Quaternion, AddsAndScalesByComponent) {
  Quaternion q = sample;
  q += Quaternion(1, 2, 3, 4);
  q *= 4;
  expectNear(q, {6, 4, 20, 17});
  q /= 2;
  q -= Quaternion(1, 1, 1, 1);
  expectNear(q, {2, 1, 9, 7.5});
}

TEST(Quaternion, AUnitOneTurnsVectorsLikeItsMatrix) {
  cv::Vec3d const axis = cv::Vec3d(2, -1, 2) / 3;
  cv::Vec3d const v(1, 2, 3);
  Quaternion const q = exp(Quaternion(0, axis * 0.4));
  Quaternion const turned = q * Quaternion(0, v) * q.conjugate();
  cv::Vec3d const expected = rot3(axis, 0.8) * v;
  expectNear(turned, Quaternion(0, expected));
}

TEST(Quaternion, ExpLogAndPowAreThoseOfComplexNumbers) {
  // In the plane of 1 and i quaternions are the complex numbers.
  std::complex<double> const c(0.5, 1.25);
  Quaternion const q(c.real(), c.imag(), 0, 0);
  auto const expectComplex = [](Quaternion const& found, std::complex<double> const& expected) {
    expectNear(found, {expected.real(), expected.imag(), 0, 0});
  };
  expectComplex(exp(q), std::exp(c));
  expectComplex(log(q), std::log(c));
  expectComplex(pow(q, 2.5), std::pow(c, 2.5));
  expectNear(exp(log(sample)), sample);
  expectNear(pow(sample, 2), sample * sample);
}

TEST(Quaternion, AZeroVectorPartHasNoAxis) {
  EXPECT_FALSE(std::isfinite(exp(one).x));
  EXPECT_FALSE(std::isfinite(log(one).x));
  EXPECT_FALSE(std::isfinite(pow(one, 2).x));
}

} // namespace
} // namespace vorn::mv::math
