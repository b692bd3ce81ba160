// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/measured_parts.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorn::sim {

namespace {

/// Sensors stand so far from the middle, and see so far to each side of it there.
constexpr double away = 8.0;
constexpr double field = 1.5;

double box(cv::Vec3d const& p, cv::Vec3d const& middle, cv::Vec3d const& half) {
  cv::Vec3d outside;
  double inside = std::numeric_limits<double>::lowest();
  for (int i = 0; i < 3; ++i) {
    double const beyond = std::abs(p[i] - middle[i]) - half[i];
    outside[i] = std::max(beyond, 0.0);
    inside = std::max(inside, beyond);
  }
  return std::sqrt(outside.dot(outside)) + std::min(inside, 0.0);
}

/// A cylinder along an axis (0, 1, 2), from its middle so far both ways.
double rod(cv::Vec3d const& p, int axis, cv::Vec3d const& middle, double radius, double half) {
  cv::Vec3d way = p - middle;
  double const along = std::abs(way[axis]) - half;
  way[axis] = 0.0;
  double const across = std::sqrt(way.dot(way)) - radius;
  return std::min(std::max(along, across), 0.0) + std::hypot(std::max(along, 0.0), std::max(across, 0.0));
}

double ball(cv::Vec3d const& p, cv::Vec3d const& middle, double radius) {
  cv::Vec3d const way = p - middle;
  return std::sqrt(way.dot(way)) - radius;
}

double without(double body, double cut) {
  return std::max(body, -cut);
}

double blended(double a, double b, double radius) {
  double const share = std::max(radius - std::abs(a - b), 0.0) / radius;
  return std::min(a, b) - share * share * radius * 0.25;
}

double milledBlock(cv::Vec3d const& p) {
  double body = box(p, {0, 0, 0}, {1, 0.7, 0.4});
  body = without(body, box(p, {0.35, 0.1, 0.4}, {0.4, 0.3, 0.25}));
  body = without(body, box(p, {-1, 0.7, 0.4}, {0.5, 0.35, 0.3}));
  return without(body, rod(p, 2, {-0.5, -0.3, 0}, 0.15, 1.0));
}

double plate(cv::Vec3d const& p) {
  double body = box(p, {0, 0, 0}, {1, 0.7, 0.12});
  body = without(body, rod(p, 2, {-0.6, 0.35, 0}, 0.2, 1.0));
  body = without(body, rod(p, 2, {0.3, -0.2, 0}, 0.3, 1.0));
  body = without(body, rod(p, 2, {0.75, 0.45, 0}, 0.1, 1.0));
  return std::min(body, box(p, {-0.55, -0.4, 0.2}, {0.25, 0.15, 0.15}));
}

double shaft(cv::Vec3d const& p) {
  double body = std::min({rod(p, 2, {0, 0, -0.6}, 0.5, 0.4), rod(p, 2, {0, 0, 0.15}, 0.38, 0.4),
                          rod(p, 2, {0, 0, 0.75}, 0.25, 0.25)});
  body = without(body, box(p, {0.38, 0, 0.2}, {0.15, 0.1, 0.25}));
  return without(body, rod(p, 1, {0, 0, -0.65}, 0.15, 1.0));
}

double bracket(cv::Vec3d const& p) {
  double body = std::min(box(p, {0, 0, -0.6}, {0.9, 0.6, 0.1}), box(p, {-0.8, 0, 0}, {0.1, 0.6, 0.7}));
  body = std::min(body, box(p, {-0.4, 0.35, -0.35}, {0.35, 0.06, 0.2}));
  body = without(body, rod(p, 2, {0.45, -0.2, -0.6}, 0.22, 1.0));
  return without(body, rod(p, 0, {-0.8, -0.15, 0.25}, 0.15, 1.0));
}

double flange(cv::Vec3d const& p) {
  double body = std::min(rod(p, 2, {0, 0, -0.2}, 1.0, 0.15), rod(p, 2, {0, 0, 0.1}, 0.45, 0.4));
  body = without(body, rod(p, 2, {0, 0, 0}, 0.25, 2.0));
  for (double const angle : {0.0, 1.2, 2.7, 4.5}) {
    body = without(body, rod(p, 2, {0.72 * std::cos(angle), 0.72 * std::sin(angle), 0}, 0.13, 2.0));
  }
  return without(body, box(p, {0.95, 0.4, 0}, {0.15, 0.15, 1.0}));
}

double wedge(cv::Vec3d const& p) {
  double const cut = cv::Vec3d(-0.5, 0.2, 0.843).dot(p) - 0.15;
  double const body = std::max(box(p, {0, 0, 0}, {0.9, 0.6, 0.6}), cut);
  return std::min(body, ball(p, {-0.35, 0.2, -0.05}, 0.35));
}

double channel(cv::Vec3d const& p) {
  double body = without(box(p, {0, 0, 0}, {1, 0.5, 0.5}), box(p, {0, 0.05, 0.2}, {2, 0.35, 0.6}));
  body = without(body, box(p, {0.9, -0.5, 0.4}, {0.4, 0.3, 0.3}));
  body = without(body, rod(p, 1, {-0.5, 0, 0.15}, 0.18, 2.0));
  return std::min(body, rod(p, 2, {0.3, 0.1, -0.3}, 0.15, 0.25));
}

double casting(cv::Vec3d const& p) {
  double body = blended(ball(p, {0, 0, 0}, 0.6), ball(p, {0.6, 0.2, 0.1}, 0.4), 0.3);
  body = blended(body, ball(p, {-0.3, 0.55, 0.2}, 0.35), 0.2);
  body = blended(body, rod(p, 2, {-0.2, -0.4, 0.3}, 0.2, 0.6), 0.15);
  return 0.9 * body;
}

double housing(cv::Vec3d const& p) {
  double body = without(box(p, {0, 0, 0}, {0.9, 0.7, 0.5}), box(p, {0.05, -0.05, 0.3}, {0.75, 0.5, 0.65}));
  body = std::min(body, rod(p, 2, {0.5, 0.3, -0.1}, 0.15, 0.4));
  body = std::min(body, rod(p, 0, {1.0, -0.2, 0}, 0.3, 0.15));
  return without(body, box(p, {-0.9, 0.2, 0.45}, {0.3, 0.25, 0.25}));
}

double waved(cv::Vec3d const& p) {
  double const length = std::max(1e-9, std::sqrt(p.dot(p)));
  cv::Vec3d const d = p * (1.0 / length);
  double const radius =
      0.85 * (1.0 + 0.08 * std::sin(3.1 * d[0] + 1.0) + 0.07 * std::sin(2.7 * d[1] + 2.2 * d[2]) +
              0.06 * std::sin(3.5 * d[2] - 1.7 * d[0] + 0.5));
  return 0.7 * (length - radius);
}

/// Where a line of sight meets the part, as a distance from the sensor; NaN where it does not.
double meet(MeasuredPart const& part, cv::Vec3d const& from, cv::Vec3d const& along) {
  constexpr double near = 1e-6;
  constexpr int mostSteps = 200;
  double at = away - 2.0;
  for (int step = 0; step < mostSteps && at < away + 2.0; ++step) {
    double const free = part.distance(from + along * at);
    if (free < near) {
      return at;
    }
    at += free;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

cv::Vec3d directionBy(std::mt19937& random) {
  std::normal_distribution<double> any(0.0, 1.0);
  return cv::normalize(cv::Vec3d(any(random), any(random), any(random)));
}

} // namespace

std::vector<MeasuredPart> measuredParts() {
  return {{"milled block", milledBlock}, {"plate", plate},     {"shaft", shaft},
          {"bracket", bracket},          {"flange", flange},   {"wedge", wedge},
          {"channel", channel},          {"casting", casting}, {"housing", housing},
          {"waved body", waved}};
}

cv::Matx44d partFromSensor(cv::Vec3d const& direction, double roll) {
  cv::Vec3d const z = direction * -1.0;
  cv::Vec3d const aside = std::abs(z[0]) < 0.9 ? cv::Vec3d(1, 0, 0) : cv::Vec3d(0, 1, 0);
  cv::Vec3d const u = cv::normalize(aside - z * z.dot(aside));
  cv::Vec3d const x = u * std::cos(roll) + z.cross(u) * std::sin(roll);
  cv::Vec3d const y = z.cross(x);
  cv::Matx44d pose = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    pose(i, 0) = x[i];
    pose(i, 1) = y[i];
    pose(i, 2) = z[i];
    pose(i, 3) = away * direction[i];
  }
  return pose;
}

cv::Mat_<cv::Vec3f> scanOf(MeasuredPart const& part, cv::Matx44d const& part_from_sensor, int side,
                           double sigma, std::mt19937& random) {
  std::normal_distribution<double> noise(0.0, 1.0);
  cv::Mat_<cv::Vec3f> points(side, side, cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN()));
  cv::Matx33d const rotation = part_from_sensor.get_minor<3, 3>(0, 0);
  cv::Vec3d const origin(part_from_sensor(0, 3), part_from_sensor(1, 3), part_from_sensor(2, 3));
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      cv::Vec3d const ray = cv::normalize(cv::Vec3d(2.0 * field * ((column + 0.5) / side - 0.5),
                                                    2.0 * field * ((row + 0.5) / side - 0.5), away));
      double const at = meet(part, origin, rotation * ray) + sigma * noise(random);
      if (std::isfinite(at)) {
        points(row, column) = cv::Vec3f(ray * at);
      }
    }
  }
  return points;
}

double sharedWith(MeasuredPart const& part, cv::Matx44d const& one, cv::Matx44d const& other) {
  constexpr int side = 60;
  constexpr double tolerance = 0.01;
  std::mt19937 random;
  cv::Vec3d const eye(other(0, 3), other(1, 3), other(2, 3));
  double all = 0.0;
  double seen = 0.0;
  for (cv::Vec3f const& point : scanOf(part, one, side, 0.0, random)) {
    if (std::isfinite(point[0])) {
      cv::Vec4d const placed = one * cv::Vec4d(point[0], point[1], point[2], 1.0);
      cv::Vec3d const way = cv::Vec3d(placed[0], placed[1], placed[2]) - eye;
      double const length = cv::norm(way);
      all += 1.0;
      seen += meet(part, eye, way * (1.0 / length)) > length - tolerance ? 1.0 : 0.0;
    }
  }
  return all > 0.0 ? seen / all : 0.0;
}

PartViews viewsOf(MeasuredPart const& part, double overlap, int side, double sigma, std::mt19937& random) {
  std::uniform_real_distribution<double> roll(0.0, 2.0 * CV_PI);
  cv::Vec3d const direction = directionBy(random);
  cv::Vec3d const axis = cv::normalize(direction.cross(directionBy(random)));
  cv::Vec3d const across = axis.cross(direction);
  cv::Matx44d const target = partFromSensor(direction, roll(random));
  double const ownRoll = roll(random);
  auto const sourceAt = [&](double angle) {
    return partFromSensor(direction * std::cos(angle) + across * std::sin(angle), ownRoll);
  };
  double low = 0.0;
  double high = CV_PI;
  for (int step = 0; step < 9; ++step) {
    double const middle = 0.5 * (low + high);
    (sharedWith(part, sourceAt(middle), target) > overlap ? low : high) = middle;
  }
  cv::Matx44d const source = sourceAt(low);
  PartViews views;
  views.source = scanOf(part, source, side, sigma, random);
  views.target = scanOf(part, target, side, sigma, random);
  views.targetFromSource = target.inv() * source;
  return views;
}

} // namespace vorn::sim
