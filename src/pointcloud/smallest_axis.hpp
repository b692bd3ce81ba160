// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// The direction in which points scatter least, and how much.
struct SmallestAxis {
  cv::Vec3d direction;  ///< of length 1; (0, 0, 0) when no direction stands out
  double scatter = 0.0; ///< the smallest eigenvalue
};

/// The eigenvector of the smallest eigenvalue of a symmetric matrix without negative eigenvalues.
///
/// Newton's method on the characteristic polynomial from 0 on reaches the smallest root from below without
/// passing it; the matrix less the root has the eigenvector as the cross product of two of its rows.
/// @param m xx, xy, xz, yy, yz, zz
inline SmallestAxis smallestAxisOf(double const (&m)[6]) {
  double const trace = m[0] + m[3] + m[5];
  if (!(trace > 0.0) || !std::isfinite(trace)) {
    return {};
  }
  double const each = 1.0 / trace;
  double const xx = m[0] * each;
  double const xy = m[1] * each;
  double const xz = m[2] * each;
  double const yy = m[3] * each;
  double const yz = m[4] * each;
  double const zz = m[5] * each;
  // det(M - t) = -t^3 + t^2 - minors t + determinant, the trace being 1.
  double const minors = xx * yy - xy * xy + xx * zz - xz * xz + yy * zz - yz * yz;
  double const determinant = xx * (yy * zz - yz * yz) - xy * (xy * zz - yz * xz) + xz * (xy * yz - yy * xz);
  double root = 0.0;
  constexpr int mostSteps = 60;
  for (int step = 0; step < mostSteps; ++step) {
    double const value = ((1.0 - root) * root - minors) * root + determinant;
    double const slope = (2.0 - 3.0 * root) * root - minors;
    if (!(slope < 0.0) || !(value > 0.0)) {
      break;
    }
    double const next = root - value / slope;
    bool const isDone = !(next > root * (1.0 + 1e-12) + 1e-18);
    root = next;
    if (isDone) {
      break;
    }
  }
  cv::Vec3d const a(xx - root, xy, xz);
  cv::Vec3d const b(xy, yy - root, yz);
  cv::Vec3d const c(xz, yz, zz - root);
  cv::Vec3d best;
  double length = 0.0;
  for (cv::Vec3d const& cross : {a.cross(b), a.cross(c), b.cross(c)}) {
    double const square = cross.dot(cross);
    best = square > length ? cross : best;
    length = std::max(length, square);
  }
  // Points on a line leave a cross product of rounding errors.
  constexpr double least = 1e-24;
  return length > least ? SmallestAxis{best * (1.0 / std::sqrt(length)), root * trace} : SmallestAxis{};
}

} // namespace vorn::mv
