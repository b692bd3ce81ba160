// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/grid_links.hpp"

#include <cmath>
#include <limits>

#include "core/simd.hpp"

namespace vorn::mv {

namespace {

/// Bounds the relative error of a squared distance in single precision, with room to spare.
constexpr double squareSlack = 1e-5;
/// Squares outside this range may have lost digits or overflowed; they are left to double precision.
constexpr double leastSquare = 1e-30;
constexpr double largestSquare = 1e30;

constexpr uchar near = 0;
constexpr uchar far = 1;
constexpr uchar doubtful = 2;

/// Marks each pair as near, far or doubtful; true when any is doubtful.
VORN_TARGET_CLONES bool classify(float const* a, float const* b, int count, float surelyNearer,
                                 float surelyFarther, uchar* marks) {
  int doubts = 0;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    float const dx = a[3 * i] - b[3 * i];
    float const dy = a[3 * i + 1] - b[3 * i + 1];
    float const dz = a[3 * i + 2] - b[3 * i + 2];
    float const square = dx * dx + dy * dy + dz * dz;
    int const mark = square > surelyFarther ? far : (square < surelyNearer ? near : doubtful);
    doubts |= mark;
    marks[i] = static_cast<uchar>(mark);
  }
  return (doubts & doubtful) != 0;
}

double distanceBetween(cv::Vec3f const& a, cv::Vec3f const& b) {
  double const dx = static_cast<double>(a[0]) - static_cast<double>(b[0]);
  double const dy = static_cast<double>(a[1]) - static_cast<double>(b[1]);
  double const dz = static_cast<double>(a[2]) - static_cast<double>(b[2]);
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

} // namespace

DistanceLimit::DistanceLimit(float distance) : distance_(static_cast<double>(distance)) {
  double const square = distance_ * distance_;
  bool const isSafe = distance > 0.0F && square > leastSquare && square < largestSquare;
  surelyNearer_ = isSafe ? static_cast<float>(square * (1.0 - squareSlack)) : -1.0F;
  surelyFarther_ =
      isSafe ? static_cast<float>(square * (1.0 + squareSlack)) : std::numeric_limits<float>::infinity();
}

void DistanceLimit::compareFarther(cv::Vec3f const* a, cv::Vec3f const* b, int count, uchar* farther) const {
  if (classify(a->val, b->val, count, surelyNearer_, surelyFarther_, farther)) {
    for (int i = 0; i < count; ++i) {
      if (farther[i] == doubtful) {
        farther[i] = distanceBetween(a[i], b[i]) > distance_ ? 1 : 0;
      }
    }
  }
}

void DistanceLimit::compareNearer(cv::Vec3f const* a, cv::Vec3f const* b, int count, uchar* nearer) const {
  bool const hasDoubts = classify(a->val, b->val, count, surelyNearer_, surelyFarther_, nearer);
  for (int i = 0; i < count; ++i) {
    if (hasDoubts && nearer[i] == doubtful) {
      nearer[i] = distanceBetween(a[i], b[i]) < distance_ ? 1 : 0;
    } else {
      nearer[i] = nearer[i] == near ? 1 : 0;
    }
  }
}

} // namespace vorn::mv
