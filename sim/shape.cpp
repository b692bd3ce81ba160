// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/shape.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/cvdef.h>

namespace vorn::sim {
namespace {

struct Span {
  double from;
  double to;
};

/// Narrows a span of t to where the ray is inside |coordinate| <= half.
bool clipSlab(double origin, double direction, double half, Span& span) {
  if (direction == 0.0) {
    return std::abs(origin) <= half;
  }
  double const a = (-half - origin) / direction;
  double const b = (half - origin) / direction;
  span.from = std::max(span.from, std::min(a, b));
  span.to = std::min(span.to, std::max(a, b));
  return span.from <= span.to;
}

struct Intersector {
  Ray const& ray;
  double tMin;
  double tMax;
  ShapeHit& hit;

  bool inRange(double t) const { return t > tMin && t < tMax; }

  bool operator()(Rectangle const& shape) const {
    double const t = -ray.origin[2] / ray.direction[2];
    if (!inRange(t)) {
      return false;
    }
    double const x = ray.origin[0] + t * ray.direction[0];
    double const y = ray.origin[1] + t * ray.direction[1];
    if (std::abs(x - shape.centre[0]) > shape.halfSize[0] ||
        std::abs(y - shape.centre[1]) > shape.halfSize[1]) {
      return false;
    }
    hit = {t, {0, 0, 1}, {x, y}};
    return true;
  }

  bool operator()(Box const& shape) const {
    Span span = {-std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    for (int axis = 0; axis < 3; ++axis) {
      if (!clipSlab(ray.origin[axis], ray.direction[axis], shape.halfSize[axis], span)) {
        return false;
      }
    }
    double const t = inRange(span.from) ? span.from : span.to;
    if (!inRange(t)) {
      return false;
    }
    cv::Vec3d const p = ray.origin + t * ray.direction;
    int face = 0;
    for (int axis = 1; axis < 3; ++axis) {
      if (shape.halfSize[axis] - std::abs(p[axis]) < shape.halfSize[face] - std::abs(p[face])) {
        face = axis;
      }
    }
    cv::Vec3d normal;
    normal[face] = p[face] < 0 ? -1.0 : 1.0;
    hit = {t, normal, {p[face == 0 ? 1 : 0], p[face == 2 ? 1 : 2]}};
    return true;
  }

  bool operator()(Sphere const& shape) const {
    double t = 0;
    if (!firstRoot(ray.direction.dot(ray.direction), ray.direction.dot(ray.origin),
                   ray.origin.dot(ray.origin) - shape.radius * shape.radius, t)) {
      return false;
    }
    cv::Vec3d const normal = (ray.origin + t * ray.direction) / shape.radius;
    hit = {t,
           normal,
           {shape.radius * std::atan2(normal[0], -normal[2]),
            shape.radius * std::asin(std::clamp(normal[1], -1.0, 1.0))}};
    return true;
  }

  bool operator()(Cylinder const& shape) const {
    double const a = ray.direction[0] * ray.direction[0] + ray.direction[2] * ray.direction[2];
    double const b = ray.direction[0] * ray.origin[0] + ray.direction[2] * ray.origin[2];
    double const c =
        ray.origin[0] * ray.origin[0] + ray.origin[2] * ray.origin[2] - shape.radius * shape.radius;
    bool found = false;
    double best = tMax;
    double const discriminant = b * b - a * c;
    if (a > 0.0 && discriminant >= 0.0) {
      for (double const sign : {-1.0, 1.0}) {
        double const t = (-b + sign * std::sqrt(discriminant)) / a;
        cv::Vec3d const p = ray.origin + t * ray.direction;
        if (t > tMin && t < best && std::abs(p[1]) <= shape.halfLength) {
          cv::Vec3d const normal(p[0] / shape.radius, 0, p[2] / shape.radius);
          hit = {t, normal, {shape.radius * std::atan2(normal[0], -normal[2]), p[1]}};
          best = t;
          found = true;
        }
      }
    }
    for (double const end : {-shape.halfLength, shape.halfLength}) {
      double const t = (end - ray.origin[1]) / ray.direction[1];
      cv::Vec3d const p = ray.origin + t * ray.direction;
      if (t > tMin && t < best && p[0] * p[0] + p[2] * p[2] <= shape.radius * shape.radius) {
        hit = {t, {0, end < 0 ? -1.0 : 1.0, 0}, {p[0], p[2]}};
        best = t;
        found = true;
      }
    }
    return found;
  }

  bool operator()(HeightField const& shape) const {
    Span span = {tMin, tMax};
    if (!clipSlab(ray.origin[0] - shape.centre[0], ray.direction[0], shape.halfSize[0], span) ||
        !clipSlab(ray.origin[1] - shape.centre[1], ray.direction[1], shape.halfSize[1], span) ||
        !clipSlab(ray.origin[2], ray.direction[2], shape.maxHeight(), span)) {
      return false;
    }
    double const steepest =
        std::abs(ray.direction[2]) + shape.maxSlope() * std::hypot(ray.direction[0], ray.direction[1]);
    // The gap between ray and surface changes by at most `steepest` per unit of t, so a step of |gap| /
    // steepest cannot pass the surface. Near it, and running towards it, Newton's method finishes.
    constexpr double near = 1e-2;
    constexpr double touching = 1e-10;
    constexpr int maxSteps = 2000;
    double t = span.from;
    bool finishing = false;
    for (int i = 0; i < maxSteps && t <= span.to; ++i) {
      double const gap = gapAt(shape, t);
      if (std::abs(gap) < touching) {
        return record(shape, t, hit);
      }
      double step = std::abs(gap) / steepest;
      if (std::abs(gap) < near) {
        double const slope = gapSlope(shape, t);
        double const newton = -gap / slope;
        finishing = finishing || (newton > 0.0 && std::abs(slope) > 0.2 * steepest);
        step = finishing ? newton : step;
      }
      t += step;
    }
    return false;
  }

private:
  /// The smaller root in range of a t^2 + 2 b t + c.
  bool firstRoot(double a, double b, double c, double& t) const {
    double const discriminant = b * b - a * c;
    if (discriminant < 0.0) {
      return false;
    }
    double const root = std::sqrt(discriminant);
    t = (-b - root) / a;
    if (!inRange(t)) {
      t = (-b + root) / a;
    }
    return inRange(t);
  }

  double gapAt(HeightField const& shape, double t) const {
    cv::Vec3d const p = ray.origin + t * ray.direction;
    return p[2] - shape.height(p[0], p[1]);
  }

  double gapSlope(HeightField const& shape, double t) const {
    cv::Vec3d const p = ray.origin + t * ray.direction;
    cv::Vec2d const slope = shape.gradient(p[0], p[1]);
    return ray.direction[2] - slope[0] * ray.direction[0] - slope[1] * ray.direction[1];
  }

  bool record(HeightField const& shape, double t, ShapeHit& out) const {
    cv::Vec3d const p = ray.origin + t * ray.direction;
    cv::Vec2d const slope = shape.gradient(p[0], p[1]);
    out = {t, cv::normalize(cv::Vec3d(-slope[0], -slope[1], 1.0)), {p[0], p[1]}};
    return inRange(t);
  }
};

struct BoundingRadius {
  double operator()(Rectangle const& r) const {
    return std::hypot(r.halfSize[0] + std::abs(r.centre[0]), r.halfSize[1] + std::abs(r.centre[1]));
  }
  double operator()(Box const& box) const { return std::sqrt(box.halfSize.dot(box.halfSize)); }
  double operator()(Sphere const& sphere) const { return sphere.radius; }
  double operator()(Cylinder const& cylinder) const {
    return std::hypot(cylinder.radius, cylinder.halfLength);
  }
  double operator()(HeightField const& field) const {
    return std::hypot(field.halfSize[0] + std::abs(field.centre[0]),
                      field.halfSize[1] + std::abs(field.centre[1]), field.maxHeight());
  }
};

} // namespace

double HeightField::height(double x, double y) const {
  double const u = (x - centre[0]) / halfSize[0];
  double const v = (y - centre[1]) / halfSize[1];
  double sum = sag[0] * u * u + sag[1] * v * v;
  for (Bump const& b : bumps) {
    double const dx = x - b.centre[0];
    double const dy = y - b.centre[1];
    sum += b.amplitude * std::exp(-(dx * dx + dy * dy) / (2.0 * b.sigma * b.sigma));
  }
  for (Wave const& w : waves) {
    sum +=
        w.amplitude * std::sin(2.0 * CV_PI * (x * w.direction[0] + y * w.direction[1]) / w.period + w.phase);
  }
  return sum;
}

cv::Vec2d HeightField::gradient(double x, double y) const {
  cv::Vec2d sum(2.0 * sag[0] * (x - centre[0]) / (halfSize[0] * halfSize[0]),
                2.0 * sag[1] * (y - centre[1]) / (halfSize[1] * halfSize[1]));
  for (Bump const& b : bumps) {
    cv::Vec2d const d(x - b.centre[0], y - b.centre[1]);
    double const squaredSigma = b.sigma * b.sigma;
    sum -= d * (b.amplitude / squaredSigma * std::exp(-d.dot(d) / (2.0 * squaredSigma)));
  }
  for (Wave const& w : waves) {
    double const frequency = 2.0 * CV_PI / w.period;
    sum += w.direction * (w.amplitude * frequency *
                          std::cos(frequency * (x * w.direction[0] + y * w.direction[1]) + w.phase));
  }
  return sum;
}

double HeightField::maxHeight() const {
  double sum = std::abs(sag[0]) + std::abs(sag[1]);
  for (Bump const& b : bumps) {
    sum += std::abs(b.amplitude);
  }
  for (Wave const& w : waves) {
    sum += std::abs(w.amplitude);
  }
  return sum;
}

double HeightField::maxSlope() const {
  double sum = std::hypot(2.0 * sag[0] / halfSize[0], 2.0 * sag[1] / halfSize[1]);
  for (Bump const& b : bumps) {
    // The steepest place of a Gaussian is one sigma from its top.
    sum += std::abs(b.amplitude) / b.sigma * std::exp(-0.5);
  }
  for (Wave const& w : waves) {
    sum += std::abs(w.amplitude) * 2.0 * CV_PI / w.period;
  }
  return sum;
}

double boundingRadius(Shape const& shape) {
  return std::visit(BoundingRadius(), shape);
}

bool intersect(Shape const& shape, Ray const& ray, double tMin, double tMax, ShapeHit& hit) {
  return std::visit(Intersector{ray, tMin, tMax, hit}, shape);
}

} // namespace vorn::sim
