// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/projection.hpp"

namespace vorn::mv {

namespace {

/// The distorted coordinates of a ray (x, y, 1), and what their derivatives share.
struct DistortedRay {
  DistortedRay(Lens const& lens, double rayX, double rayY)
      : x(rayX), y(rayY), xy2(2 * x * y), r2(x * x + y * y),
        denominator(1 / (1 + r2 * (lens.k4 + r2 * (lens.k5 + r2 * lens.k6)))),
        radial((1 + r2 * (lens.k1 + r2 * (lens.k2 + r2 * lens.k3))) * denominator),
        place(x * radial + lens.p1 * xy2 + lens.p2 * (r2 + 2 * x * x) + r2 * (lens.s1 + r2 * lens.s2),
              y * radial + lens.p1 * (r2 + 2 * y * y) + lens.p2 * xy2 + r2 * (lens.s3 + r2 * lens.s4)) {}

  cv::Matx22d byRay(Lens const& c) const {
    double const radialSlope =
        (c.k1 + r2 * (2 * c.k2 + r2 * (3 * c.k3)) - radial * (c.k4 + r2 * (2 * c.k5 + r2 * (3 * c.k6)))) *
        denominator;
    double const prismX = 2 * (c.s1 + 2 * r2 * c.s2);
    double const prismY = 2 * (c.s3 + 2 * r2 * c.s4);
    double const shared = xy2 * radialSlope + 2 * (c.p1 * x + c.p2 * y);
    return {radial + 2 * x * x * radialSlope + 2 * c.p1 * y + 6 * c.p2 * x + prismX * x, shared + prismX * y,
            shared + prismY * x, radial + 2 * y * y * radialSlope + 6 * c.p1 * y + 2 * c.p2 * x + prismY * y};
  }

  /// By k1, k2, p1, p2, k3 ... s4.
  cv::Matx<double, 2, 12> byLens() const {
    double const r4 = r2 * r2;
    double const r6 = r4 * r2;
    double const up = denominator;
    double const down = -radial * denominator;
    return {x * r2 * up,
            x * r4 * up,
            xy2,
            r2 + 2 * x * x,
            x * r6 * up,
            x * r2 * down,
            x * r4 * down,
            x * r6 * down,
            r2,
            r4,
            0,
            0, //
            y * r2 * up,
            y * r4 * up,
            r2 + 2 * y * y,
            xy2,
            y * r6 * up,
            y * r2 * down,
            y * r4 * down,
            y * r6 * down,
            0,
            0,
            r2,
            r4};
  }

  double x, y, xy2, r2, denominator, radial;
  cv::Vec2d place;
};

} // namespace

cv::Vec2d Projection::operator()(cv::Vec3d const& point, ByPoint* byPoint, ByParameters* byParameters) const {
  double const perDepth = 1 / point[2];
  DistortedRay const ray(camera_.lens, point[0] * perDepth, point[1] * perDepth);
  cv::Vec2d place = ray.place;
  cv::Matx22d byPlace = cv::Matx22d::eye(); // the sensor's coordinates by the lens's
  if (camera_.isTilted) {
    cv::Vec3d const onSensor = camera_.tilt * cv::Vec3d(place[0], place[1], 1);
    double const w = 1 / onSensor[2];
    place = {onSensor[0] * w, onSensor[1] * w};
    for (int row = 0; row < 2; ++row) {
      for (int col = 0; col < 2; ++col) {
        byPlace(row, col) = (camera_.tilt(row, col) - place[row] * camera_.tilt(2, col)) * w;
      }
    }
  }
  cv::Matx22d const toPixel = cv::Matx22d(camera_.fx, 0, 0, camera_.fy) * byPlace;
  if (byPoint != nullptr) {
    cv::Matx23d const rayByPoint(perDepth, 0, -ray.x * perDepth, 0, perDepth, -ray.y * perDepth);
    *byPoint = toPixel * ray.byRay(camera_.lens) * rayByPoint;
  }
  if (byParameters != nullptr) {
    cv::Matx<double, 2, 12> const byLens = toPixel * ray.byLens();
    *byParameters = ByParameters::zeros();
    (*byParameters)(0, 0) = place[0];
    (*byParameters)(0, 2) = 1;
    (*byParameters)(1, 1) = place[1];
    (*byParameters)(1, 3) = 1;
    for (int row = 0; row < 2; ++row) {
      for (int i = 0; i < 12; ++i) {
        (*byParameters)(row, 4 + i) = byLens(row, i);
      }
    }
  }
  return {camera_.cx + camera_.fx * place[0], camera_.cy + camera_.fy * place[1]};
}

} // namespace vorn::mv
