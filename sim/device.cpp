// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/device.hpp"

#include <cmath>
#include <stdexcept>

namespace vorn::sim {
namespace {

/// Squared radius, in normalized coordinates, up to which the radial polynomial grows: its first turning
/// point, or `limit` if it has none before that.
double growthLimit(std::array<double, 5> const& d, double limit) {
  constexpr int steps = 20000;
  for (int i = 1; i <= steps; ++i) {
    double const r2 = limit * i / steps;
    if (1.0 + r2 * (3.0 * d[0] + r2 * (5.0 * d[1] + r2 * 7.0 * d[4])) <= 0.0) {
      return limit * (i - 1) / steps;
    }
  }
  return limit;
}

} // namespace

Device::Device(cv::Point2d const& focal, cv::Point2d const& centre, std::array<double, 5> const& distortion,
               cv::Size const& resolution)
    : focal_(focal), centre_(centre), distortion_(distortion), resolution_(resolution) {
  if (resolution.empty() || !(focal.x > 0.0) || !(focal.y > 0.0)) {
    throw std::invalid_argument("sim::Device: the resolution and the focal length must be positive");
  }
  // A half angle of 76 degrees: wider than any lens this model describes.
  constexpr double widestSquaredRadius = 16.0;
  maxSquaredRadius_ = growthLimit(distortion, widestSquaredRadius);
}

Device Device::withPrism(cv::Vec4d const& prism) const {
  Device device = *this;
  device.prism_ = prism;
  return device;
}

cv::Point2d Device::distort(cv::Point2d const& n) const {
  auto const& [k1, k2, p1, p2, k3] = distortion_;
  double const r2 = n.x * n.x + n.y * n.y;
  double const radial = 1.0 + r2 * (k1 + r2 * (k2 + r2 * k3));
  return {
      n.x * radial + 2.0 * p1 * n.x * n.y + p2 * (r2 + 2.0 * n.x * n.x) + r2 * (prism_[0] + r2 * prism_[1]),
      n.y * radial + p1 * (r2 + 2.0 * n.y * n.y) + 2.0 * p2 * n.x * n.y + r2 * (prism_[2] + r2 * prism_[3])};
}

std::optional<cv::Point2d> Device::project(cv::Vec3d const& x) const {
  if (!(x[2] > 0.0)) {
    return std::nullopt;
  }
  cv::Point2d const normalized(x[0] / x[2], x[1] / x[2]);
  if (normalized.dot(normalized) > maxSquaredRadius_) {
    return std::nullopt;
  }
  cv::Point2d const d = distort(normalized);
  return cv::Point2d(focal_.x * d.x + centre_.x, focal_.y * d.y + centre_.y);
}

cv::Vec3d Device::ray(cv::Point2d const& pixel) const {
  auto const& [k1, k2, p1, p2, k3] = distortion_;
  cv::Point2d const wanted((pixel.x - centre_.x) / focal_.x, (pixel.y - centre_.y) / focal_.y);
  cv::Point2d n = wanted;
  // Newton's method; it gains twice the digits at each step once it is near, so a step of 1e-9 is the last
  // one that counts, and the limit is never a matter of accuracy but only of pixels outside the lens's range,
  // which have no ray.
  constexpr int maxSteps = 30;
  constexpr double converged = 1e-18;
  for (int i = 0; i < maxSteps; ++i) {
    cv::Point2d const miss = distort(n) - wanted;
    double const r2 = n.x * n.x + n.y * n.y;
    double const radial = 1.0 + r2 * (k1 + r2 * (k2 + r2 * k3));
    double const slope = 2.0 * (k1 + r2 * (2.0 * k2 + r2 * 3.0 * k3));
    // Of the prism terms, by r2.
    double const prismX = prism_[0] + 2.0 * r2 * prism_[1];
    double const prismY = prism_[2] + 2.0 * r2 * prism_[3];
    double const mixed = n.x * n.y * slope + 2.0 * p1 * n.x + 2.0 * p2 * n.y;
    double const xx = radial + n.x * n.x * slope + 2.0 * p1 * n.y + 6.0 * p2 * n.x + 2.0 * n.x * prismX;
    double const xy = mixed + 2.0 * n.y * prismX;
    double const yx = mixed + 2.0 * n.x * prismY;
    double const yy = radial + n.y * n.y * slope + 6.0 * p1 * n.y + 2.0 * p2 * n.x + 2.0 * n.y * prismY;
    double const determinant = xx * yy - xy * yx;
    cv::Point2d const step((yy * miss.x - xy * miss.y) / determinant,
                           (xx * miss.y - yx * miss.x) / determinant);
    n -= step;
    if (step.dot(step) < converged) {
      break;
    }
  }
  return {n.x, n.y, 1.0};
}

} // namespace vorn::sim
