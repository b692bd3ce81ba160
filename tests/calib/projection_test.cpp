// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/projection.hpp"

#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

namespace vorn::mv {
namespace {

cv::Mat const K = (cv::Mat_<double>(3, 3) << 1200, 0, 640, 0, 1190, 500, 0, 0, 1);
std::vector<cv::Vec3d> const points{{0, 0, 500}, {150, -90, 520}, {-200, 160, 480}, {30, 210, 700}};

/// Fourteen coefficients, of which the last two tilt the sensor.
std::vector<double> const D{-0.2,  0.1,  1e-3,  -2e-3, 0.03, 0.02, -0.01,
                            0.004, 2e-3, -1e-3, 3e-3,  5e-4, 0.02, -0.03};

TEST(Projection, IsOpenCVs) {
  for (std::size_t count : {0U, 4U, 5U, 8U, 12U, 14U}) {
    cv::Mat const coefficients(std::vector<double>(D.begin(), D.begin() + static_cast<std::ptrdiff_t>(count)),
                               true);
    Projection const projection(cameraNumbers(K, coefficients));
    std::vector<cv::Point2d> expected;
    cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), K, coefficients, expected);
    for (std::size_t i = 0; i < points.size(); ++i) {
      EXPECT_LT(cv::norm(cv::Point2d(projection(points[i])) - expected[i]), 1e-10) << count;
    }
  }
}

/// Central differences of `f` for a step.
template <class F>
cv::Vec2d difference(F const& f, double step) {
  return (f(step) - f(-step)) / (2 * step);
}

TEST(Projection, DerivativesAreThoseOfDifferences) {
  for (std::size_t count : {5U, 12U, 14U}) {
    std::vector<double> const d(D.begin(), D.begin() + static_cast<std::ptrdiff_t>(count));
    for (cv::Vec3d const& point : points) {
      Projection::ByPoint byPoint;
      Projection::ByParameters byParameters;
      Projection const projection(cameraNumbers(K, cv::Mat(d)));
      projection(point, &byPoint, &byParameters);
      for (int i = 0; i < 3; ++i) {
        auto const moved = [&](double step) {
          cv::Vec3d p = point;
          p[i] += step;
          return projection(p);
        };
        EXPECT_LT(cv::norm(difference(moved, 1e-3) - cv::Vec2d(byPoint(0, i), byPoint(1, i))), 1e-7);
      }
      for (int i = 0; i < Projection::parameterCount; ++i) {
        auto const changed = [&](double step) {
          cv::Mat k = K.clone();
          std::vector<double> e = d;
          e.resize(std::max(e.size(), std::size_t{12}));
          (i < 4 ? k.at<double>(i % 2, i < 2 ? i : 2) : e[static_cast<std::size_t>(i) - 4]) += step;
          return Projection(cameraNumbers(k, cv::Mat(e)))(point);
        };
        EXPECT_LT(cv::norm(difference(changed, 1e-5) - cv::Vec2d(byParameters(0, i), byParameters(1, i))),
                  1e-5)
            << "parameter " << i;
      }
    }
  }
}

} // namespace
} // namespace vorn::mv
