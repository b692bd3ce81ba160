// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/undistortion.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include <opencv2/core.hpp>

#include "calib/undistorted_map.hpp"
#include "core/error.hpp"
#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

/// Points solved side by side; their arrays stay in the first cache.
constexpr std::size_t blockSize = 64;

/// One Newton step towards the points that the lens images to the targets. Fills in the squared length of
/// each step and the determinant of the slope there.
VORN_TARGET_CLONES
void newtonStep(Lens const& lens, double const* targetX, double const* targetY, double* x, double* y,
                double* step2, double* determinant, std::size_t count) {
  Lens const c = lens;
  for (std::size_t i = 0; i < count; ++i) {
    double const u = x[i];
    double const v = y[i];
    double const uv2 = 2 * u * v;
    double const r2 = u * u + v * v;
    double const denominator = 1 / (1 + r2 * (c.k4 + r2 * (c.k5 + r2 * c.k6)));
    double const radial = (1 + r2 * (c.k1 + r2 * (c.k2 + r2 * c.k3))) * denominator;
    double const radialSlope =
        (c.k1 + r2 * (2 * c.k2 + r2 * (3 * c.k3)) - radial * (c.k4 + r2 * (2 * c.k5 + r2 * (3 * c.k6)))) *
        denominator;
    double const errorX =
        u * radial + c.p1 * uv2 + c.p2 * (r2 + 2 * u * u) + r2 * (c.s1 + r2 * c.s2) - targetX[i];
    double const errorY =
        v * radial + c.p1 * (r2 + 2 * v * v) + c.p2 * uv2 + r2 * (c.s3 + r2 * c.s4) - targetY[i];
    double const prismX = 2 * (c.s1 + 2 * r2 * c.s2);
    double const prismY = 2 * (c.s3 + 2 * r2 * c.s4);
    double const shared = uv2 * radialSlope + 2 * (c.p1 * u + c.p2 * v);
    double const xx = radial + 2 * u * u * radialSlope + 2 * c.p1 * v + 6 * c.p2 * u + prismX * u;
    double const xy = shared + prismX * v;
    double const yx = shared + prismY * u;
    double const yy = radial + 2 * v * v * radialSlope + 6 * c.p1 * v + 2 * c.p2 * u + prismY * v;
    double const det = xx * yy - xy * yx;
    double const stepX = (yy * errorX - xy * errorY) / det;
    double const stepY = (xx * errorY - yx * errorX) / det;
    x[i] = u - stepX;
    y[i] = v - stepY;
    step2[i] = stepX * stepX + stepY * stepY;
    determinant[i] = det;
  }
}

/// The image radius of a ray's radius, without tangential terms.
double distortedRadius(Lens const& c, double r) {
  double const r2 = r * r;
  return r * (1 + r2 * (c.k1 + r2 * (c.k2 + r2 * c.k3))) / (1 + r2 * (c.k4 + r2 * (c.k5 + r2 * c.k6)));
}

/// After a step shorter than this Newton's method is exact to the last bits: its error is squared each time.
constexpr double lastStep2 = 1e-18;

/// More rounds than any usable lens takes from its own distorted point.
constexpr int maxRounds = 8;

} // namespace

double validRadius(Lens const& lens) {
  constexpr double end = 20;
  constexpr int steps = 2000;
  constexpr double step = end / steps;
  double previous = 0;
  for (int i = 1; i < steps; ++i) {
    double const r = i * step;
    double const next = distortedRadius(lens, r);
    if (!(next > previous)) {
      return r -
             step; // short of the fold by less than two steps, where the inverse is ill-conditioned anyway
    }
    previous = next;
  }
  return end;
}

void checkCamera(cv::Mat const& K, cv::Mat const& D) {
  auto const describe = [](cv::Mat const& m) {
    return std::to_string(m.rows) + " x " + std::to_string(m.cols) + " " + cv::typeToString(m.type());
  };
  if (K.size() != cv::Size(3, 3) || K.channels() != 1) {
    throw error(K.empty() ? "The camera is not calibrated: it has no K"
                          : "K must be 3 x 3, not " + describe(K),
                "CameraModel");
  }
  cv::Matx33d const k = cv::Mat_<double>(K);
  if (!cv::checkRange(k) || k(0, 0) == 0 || k(1, 1) == 0) {
    throw error("K has no focal lengths", "CameraModel");
  }
  auto const n = D.total();
  bool const isVector = D.dims <= 2 && (D.rows == 1 || D.cols == 1) && D.channels() == 1;
  if (n != 0 && !(isVector && (n == 4 || n == 5 || n == 8 || n == 12 || n == 14))) {
    throw error("D must hold 4, 5, 8, 12 or 14 coefficients, not " + describe(D), "CameraModel");
  }
  if (n != 0 && !cv::checkRange(D)) {
    throw error("D holds a coefficient that is not finite", "CameraModel");
  }
}

CameraNumbers cameraNumbers(cv::Mat const& K, cv::Mat const& D) {
  checkCamera(K, D);
  cv::Matx33d const k = cv::Mat_<double>(K);
  double d[14] = {};
  if (!D.empty()) {
    cv::Mat_<double> const values(D);
    std::copy(values.begin(), values.end(), d);
  }
  CameraNumbers camera;
  camera.fx = k(0, 0);
  camera.fy = k(1, 1);
  camera.cx = k(0, 2);
  camera.cy = k(1, 2);
  camera.lens = {d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7], d[8], d[9], d[10], d[11]};
  camera.isTilted = d[12] != 0 || d[13] != 0;
  if (camera.isTilted) {
    double const sx = std::sin(d[12]);
    double const cx = std::cos(d[12]);
    double const sy = std::sin(d[13]);
    double const cy = std::cos(d[13]);
    cv::Matx33d const R =
        cv::Matx33d(cy, 0, -sy, 0, 1, 0, sy, 0, cy) * cv::Matx33d(1, 0, 0, 0, cx, sx, 0, -sx, cx);
    cv::Matx33d const onSensor(R(2, 2), 0, -R(0, 2), 0, R(2, 2), -R(1, 2), 0, 0, 1);
    camera.tilt = onSensor * R;
  }
  return camera;
}

Undistortion::Undistortion(cv::Mat const& K, cv::Mat const& D)
    : camera_(cameraNumbers(K, D)), untilt_(camera_.tilt.inv()), validRadius_(validRadius(camera_.lens)) {}

void Undistortion::toLensPlane(double& x, double& y) const {
  x = (x - camera_.cx) / camera_.fx;
  y = (y - camera_.cy) / camera_.fy;
  if (camera_.isTilted) {
    cv::Vec3d const v = untilt_ * cv::Vec3d(x, y, 1);
    x = v[0] / v[2];
    y = v[1] / v[2];
  }
}

void Undistortion::toRays(double* x, double* y, std::size_t count) const {
  for (std::size_t first = 0; first < count; first += blockSize) {
    solveBlock(x + first, y + first, std::min(blockSize, count - first));
  }
}

void Undistortion::solveBlock(double* x, double* y, std::size_t count) const {
  double targetX[blockSize];
  double targetY[blockSize];
  double step2[blockSize];
  double determinant[blockSize];
  for (std::size_t i = 0; i < count; ++i) {
    toLensPlane(x[i], y[i]);
    targetX[i] = x[i];
    targetY[i] = y[i];
  }
  auto const isClose = [](double length2) { return length2 < lastStep2; };
  for (int round = 0; round < maxRounds; ++round) {
    newtonStep(camera_.lens, targetX, targetY, x, y, step2, determinant, count);
    if (std::all_of(step2, step2 + count, isClose)) {
      break;
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    double const r2 = x[i] * x[i] + y[i] * y[i];
    if (!(step2[i] < lastStep2 && determinant[i] > 0 && r2 <= validRadius_ * validRadius_)) {
      cv::Point2d const ray = solveCarefully(targetX[i], targetY[i]);
      x[i] = ray.x;
      y[i] = ray.y;
    }
  }
}

/// Starts Newton's method at the solution without tangential terms, which bisection finds wherever it exists.
cv::Point2d Undistortion::solveCarefully(double targetX, double targetY) const {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr int bisections = 60;
  constexpr int rounds = 50;
  double const targetRadius = std::hypot(targetX, targetY);
  double low = 0;
  double high = validRadius_;
  for (int i = 0; i < bisections && targetRadius > 0; ++i) {
    double const middle = (low + high) / 2;
    (distortedRadius(camera_.lens, middle) < targetRadius ? low : high) = middle;
  }
  double const scale = targetRadius > 0 ? low / targetRadius : 0;
  double x = targetX * scale;
  double y = targetY * scale;
  double step2 = 0;
  double determinant = 0;
  for (int i = 0; i < rounds; ++i) {
    newtonStep(camera_.lens, &targetX, &targetY, &x, &y, &step2, &determinant, 1);
    if (step2 < lastStep2) {
      bool const isInside = determinant > 0 && std::hypot(x, y) <= validRadius_;
      return isInside ? cv::Point2d(x, y) : cv::Point2d(nan, nan);
    }
  }
  return {nan, nan};
}

std::vector<cv::Point2d> undistorted(cv::Mat const& K, cv::Mat const& D,
                                     std::vector<cv::Point2f> const& pixels) {
  Undistortion const undistortion(K, D);
  std::vector<double> x;
  std::vector<double> y;
  x.reserve(pixels.size());
  y.reserve(pixels.size());
  for (cv::Point2f const& pixel : pixels) {
    x.push_back(pixel.x);
    y.push_back(pixel.y);
  }
  undistortion.toRays(x.data(), y.data(), pixels.size());
  std::vector<cv::Point2d> rays;
  rays.reserve(pixels.size());
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    rays.emplace_back(x[i], y[i]);
  }
  return rays;
}

cv::Mat_<cv::Vec2f> undistortedMap(cv::Mat const& K, cv::Mat const& D, cv::Size const& size,
                                   Progress const& progress) {
  Undistortion const undistortion(K, D);
  cv::Mat_<cv::Vec2f> map(size);
  constexpr int bandRows = 32;
  parallelRows(map.rows, bandRows, progress, "computing rays", [&](int firstRow, int endRow) {
    double x[blockSize];
    double y[blockSize];
    for (int row = firstRow; row < endRow; ++row) {
      for (int first = 0; first < map.cols; first += static_cast<int>(blockSize)) {
        int const count = std::min(static_cast<int>(blockSize), map.cols - first);
        for (int i = 0; i < count; ++i) {
          x[i] = first + i;
          y[i] = row;
        }
        undistortion.toRays(x, y, static_cast<std::size_t>(count));
        cv::Vec2f* const out = map[row] + first;
        for (int i = 0; i < count; ++i) {
          out[i] = {static_cast<float>(x[i]), static_cast<float>(y[i])};
        }
      }
    }
  });
  return map;
}

} // namespace vorn::mv
