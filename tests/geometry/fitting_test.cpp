// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/fitting.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

namespace vorn::mv::math {
namespace {

std::vector<cv::Point3f> scatteredPoints(int count) {
  std::vector<cv::Point3f> points(static_cast<std::size_t>(count));
  cv::theRNG().fill(points, cv::RNG::UNIFORM, -50, 50);
  return points;
}

double residual(cv::Matx44d const& T, std::vector<cv::Point3f> const& first,
                std::vector<cv::Point3f> const& second) {
  double sum = 0;
  for (std::size_t i = 0; i < first.size(); ++i) {
    sum += std::pow(cv::norm(transform(first[i], T) - second[i]), 2);
  }
  return sum;
}

TEST(EstimateTransform, FindsTheTransform) {
  auto const points = scatteredPoints(40);
  EXPECT_LT(cv::norm(estimateTransform(points, points) - cv::Matx44d::eye(), cv::NORM_INF), 1e-6);
  cv::Matx44d const T = createTransform(rot3({1, -2, 0.5}, 2.5), {100, -20, 7});
  // Points of size 100 as floats.
  EXPECT_LT(cv::norm(estimateTransform(points, transformPoints(points, T)) - T, cv::NORM_INF), 1e-5);
  EXPECT_LT(residual(estimateTransform({{1, 2, 3}}, {{4, 6, 8}}), {{1, 2, 3}}, {{4, 6, 8}}), 1e-12);
}

TEST(EstimateTransform, ManyPointsFarFromTheOriginLoseNothing) {
  // A quarter turn and steps of 1/64 keep every coordinate exact as a float, so nothing but the estimate
  // errs.
  cv::Matx44d const T = createTransform({0, -1, 0, 1, 0, 0, 0, 0, 1}, {10, -20, 300});
  std::vector<cv::Point3f> first;
  std::vector<cv::Point3f> second;
  for (int i = 0; i < 100000; ++i) {
    auto const step = [i](int factor, int sides) { return static_cast<float>(i * factor % sides) / 64; };
    first.emplace_back(50 + step(7, 6400), step(13, 6397) - 50, 450 + step(31, 6389));
    cv::Point3f const& p = first.back();
    second.emplace_back(10 - p.y, p.x - 20, p.z + 300);
  }
  EXPECT_LT(cv::norm(estimateTransform(first, second) - T, cv::NORM_INF), 1e-9);
}

TEST(EstimateTransform, NoSmallMotionFitsNoisyPointsBetter) {
  auto const first = scatteredPoints(30);
  cv::Matx44d const T = createTransform(rot3({3, 1, 1}, -0.7), {1, 2, 3});
  auto second = transformPoints(first, T);
  for (cv::Point3f& p : second) {
    cv::Vec3f noise;
    cv::theRNG().fill(noise, cv::RNG::NORMAL, 0, 1);
    p += cv::Point3f(noise);
  }
  cv::Matx44d const best = estimateTransform(first, second);
  EXPECT_NEAR(cv::determinant(getR3(best)), 1, 1e-12);
  double const least = residual(best, first, second);
  for (int axis = 0; axis < 3; ++axis) {
    for (double step : {-1e-3, 1e-3}) {
      cv::Vec3d v;
      v[axis] = 1;
      EXPECT_GT(residual(createTransform(rot3(v, step), {}) * best, first, second), least);
      EXPECT_GT(residual(createTransform(cv::Matx33d::eye(), 10 * step * v) * best, first, second), least);
    }
  }
}

TEST(EstimateTransform, NegatesTheThirdColumnOfAReflection) {
  // An exact reflection, turned so that its third column and its third row differ.
  cv::Matx33d const reflection = rotX(0.4) * rotY(0.5) * cv::Matx33d(1, 0, 0, 0, -1, 0, 0, 0, 1);
  std::vector<cv::Point3f> const points{{3, 0, 0}, {-3, 0, 0}, {0, 2, 0}, {0, -2, 0}, {0, 0, 1}, {0, 0, -1}};
  auto const mirrored = transformPoints(points, createTransform(reflection, {}));
  cv::Matx33d const R = getR3(estimateTransform(points, mirrored));
  EXPECT_LT(cv::norm(R - reflection * cv::Matx33d(1, 0, 0, 0, 1, 0, 0, 0, -1), cv::NORM_INF), 1e-6);
}

TEST(EstimateTransform, RefusesListsThatDoNotMatch) {
  EXPECT_THROW(estimateTransform({}, {}), Exception);
  EXPECT_THROW(estimateTransform({{1, 2, 3}, {4, 5, 6}}, {{1, 2, 3}}), Exception);
  EXPECT_NO_THROW(estimateTransform({{1, 2, 3}}, {{1, 2, 3}, {4, 5, 6}}));
}

TEST(QuadraticFit, FindsTheSurface) {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < 25; ++i) {
    auto const x = static_cast<float>(i % 5);
    auto const y = static_cast<float>(i / 5 - 1);
    points.emplace_back(x, y, 2 * x * x - y + 3);
  }
  cv::Mat const fit = quadraticFit(points);
  ASSERT_EQ(fit.size(), cv::Size(1, 5));
  cv::Mat const expected = (cv::Mat_<double>(5, 1) << 2, 0, 0, -1, 3);
  // The normal equations square the condition of small whole numbers.
  EXPECT_LT(cv::norm(fit, expected, cv::NORM_INF), 1e-10);
}

TEST(QuadraticFit, IsZeroWhereNothingIsDetermined) {
  EXPECT_EQ(cv::norm(quadraticFit({})), 0);
  EXPECT_EQ(cv::norm(quadraticFit({{0, 0, 1}, {1, 0, 2}, {0, 1, 3}, {1, 1, 4}})), 0);
  EXPECT_EQ(quadraticFit({}).size(), cv::Size(1, 5));
  // Rounding leaves something of either sign where a pivot should be zero, in proportion to the coordinates.
  for (float const scale : {1.0F, 100.0F, 4096.0F}) {
    for (float const slope : {-3.0F, 0.5F, 2.0F, 7.0F}) {
      for (int const count : {5, 10, 20, 1000}) {
        std::vector<cv::Point3f> line;
        for (int i = 0; i < count; ++i) {
          auto const t = static_cast<float>(i);
          line.emplace_back(scale * (t + 1), scale * (slope * t + 3), t * t);
        }
        EXPECT_EQ(cv::norm(quadraticFit(line)), 0) << count << " points, " << scale << ", slope " << slope;
      }
    }
  }
}

TEST(QuadraticFit, FindsASurfaceFarFromTheOrigin) {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < 100; ++i) {
    auto const x = static_cast<float>(i % 10);
    auto const y = static_cast<float>(i / 10);
    points.emplace_back(500 + x, 300 + y, 2 * x * x - y);
  }
  cv::Mat_<double> const fit = quadraticFit(points);
  // Columns that differ by a thousandth lose half of the digits when they are squared.
  EXPECT_NEAR(fit(0), 2, 1e-3);
  EXPECT_NEAR(fit(2), 0, 1e-3);
}

} // namespace
} // namespace vorn::mv::math
