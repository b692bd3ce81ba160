// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/fitting.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "core/error.hpp"

namespace vorn::mv::math {

namespace {

/// In double: a sum of many floats grows until single coordinates hardly change it.
cv::Point3d centroid(std::vector<cv::Point3f> const& points) {
  cv::Point3d sum;
  for (cv::Point3f const& p : points) {
    sum += cv::Point3d(p);
  }
  return sum / static_cast<double>(points.size());
}

/// Whether rounding alone keeps normal equations from being singular, whatever the units of their unknowns.
/// OpenCV's inverse compares its pivots with a fixed number, which those of large coordinates never come
/// below.
bool isSingular(cv::Mat_<double> const& gram) {
  cv::Mat_<double> scaled = gram.clone();
  for (int row = 0; row < gram.rows; ++row) {
    for (int col = 0; col < gram.cols; ++col) {
      scaled(row, col) /= std::sqrt(gram(row, row) * gram(col, col));
    }
  }
  cv::Mat_<double> values; // descending
  cv::eigen(scaled, values);
  constexpr double rounding = 20 * std::numeric_limits<double>::epsilon();
  return values(gram.rows - 1) < rounding;
}

} // namespace

cv::Matx44d estimateTransform(std::vector<cv::Point3f> const& first, std::vector<cv::Point3f> const& second) {
  if (first.empty() || second.size() < first.size()) {
    throw error("Cannot match " + std::to_string(first.size()) + " points with " +
                    std::to_string(second.size()),
                "estimateTransform");
  }
  cv::Point3d const c1 = centroid(first);
  cv::Point3d const c2 = centroid(second);
  cv::Matx33d H;
  for (std::size_t i = 0; i < first.size(); ++i) {
    H += cv::Vec3d(cv::Point3d(first[i]) - c1) * cv::Vec3d(cv::Point3d(second[i]) - c2).t();
  }
  cv::Matx31d W;
  cv::Matx33d U;
  cv::Matx33d Vt;
  cv::SVD::compute(H, W, U, Vt);
  cv::Matx33d const R0 = (U * Vt).t();
  cv::Matx33d const R = R0 * cv::Matx33d::diag({1, 1, cv::determinant(R0)});
  return createTransform(R, cv::Vec3d(c2) - R * cv::Vec3d(c1));
}

cv::Mat quadraticFit(std::vector<cv::Point3f> const& points) {
  if (points.empty()) {
    return cv::Mat::zeros(5, 1, CV_64F);
  }
  int const n = static_cast<int>(points.size());
  cv::Mat_<double> A(n, 5);
  cv::Mat_<double> b(n, 1);
  for (int i = 0; i < n; ++i) {
    cv::Point3d const p = points[static_cast<std::size_t>(i)];
    double const row[] = {p.x * p.x, p.x, p.y * p.y, p.y, 1};
    std::copy(std::begin(row), std::end(row), A[i]);
    b(i) = p.z;
  }
  cv::Mat const At = A.t();
  cv::Mat const gram = At * A;
  if (isSingular(gram)) {
    return cv::Mat::zeros(5, 1, CV_64F);
  }
  return gram.inv() * At * b;
}

} // namespace vorn::mv::math
