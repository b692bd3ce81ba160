// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/shape_basis.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include <opencv2/core.hpp>

#include "core/median.hpp"

namespace vorn::mv {

namespace {

constexpr int highestDegree = 6;

/// Legendre's polynomials up to degree 6: over an even target they are independent of each other, so that a
/// curve holds no tilt and a stretch no change of the mean pitch.
std::array<double, highestDegree + 1> legendre(double x) {
  std::array<double, highestDegree + 1> p{1, x};
  for (std::size_t n = 1; n < highestDegree; ++n) {
    auto const k = static_cast<double>(n);
    p[n + 1] = ((2 * k + 1) * x * p[n] - k * p[n - 1]) / (k + 1);
  }
  return p;
}

/// A product of two polynomials along one coordinate of space.
struct Way {
  int axis;
  std::size_t degreeX;
  std::size_t degreeY;
};

std::vector<Way> waysOf(ShapeBasis::Level level) {
  std::vector<Way> ways;
  auto const add = [&](int axis, std::size_t least, std::size_t most) {
    for (std::size_t degree = least; degree <= most; ++degree) {
      for (std::size_t y = 0; y <= degree; ++y) {
        ways.push_back({axis, degree - y, y});
      }
    }
  };
  if (level == ShapeBasis::Level::Quadratic) {
    add(2, 2, 2);
  } else if (level == ShapeBasis::Level::Smooth) {
    add(2, 2, highestDegree);
    add(0, 2, 3);
    add(1, 2, 3);
  }
  return ways;
}

} // namespace

double medianPitch(std::vector<cv::Point2f> const& dots) {
  std::vector<double> distances;
  for (cv::Point2f const& dot : dots) {
    double nearest = std::numeric_limits<double>::infinity();
    for (cv::Point2f const& other : dots) {
      double const distance = cv::norm(dot - other);
      nearest = distance > 0 ? std::min(nearest, distance) : nearest;
    }
    distances.push_back(nearest);
  }
  return medianOf(std::move(distances));
}

ShapeBasis::ShapeBasis(Level level, std::vector<cv::Point2f> const& dots) : level_(level) {
  auto const count = static_cast<int>(dots.size());
  if (level == Level::Dots) {
    parameterCount_ = 3 * count;
    pitch_ = medianPitch(dots);
    return;
  }
  if (level == Level::Flat || dots.empty()) {
    return;
  }
  std::vector<Way> const ways = waysOf(level);
  constexpr int linear = 2; // aspect and shear
  parameterCount_ = linear + static_cast<int>(ways.size());
  cv::Point2f low = dots[0];
  cv::Point2f high = dots[0];
  for (cv::Point2f const& dot : dots) {
    low = {std::min(low.x, dot.x), std::min(low.y, dot.y)};
    high = {std::max(high.x, dot.x), std::max(high.y, dot.y)};
  }
  cv::Point2d const middle = (cv::Point2d(low) + cv::Point2d(high)) / 2;
  cv::Point2d const half = (cv::Point2d(high) - cv::Point2d(low)) / 2;
  double const reach = std::max(half.x, half.y);
  ways_.setZero(3 * count, parameterCount_);
  for (int dot = 0; dot < count; ++dot) {
    cv::Point2d const place = cv::Point2d(dots[static_cast<std::size_t>(dot)]) - middle;
    auto const x = legendre(place.x / half.x);
    auto const y = legendre(place.y / half.y);
    ways_(3 * dot, 0) = place.x / reach;
    ways_(3 * dot + 1, 0) = -place.y / reach;
    ways_(3 * dot, 1) = place.y / reach;
    ways_(3 * dot + 1, 1) = place.x / reach;
    for (std::size_t i = 0; i < ways.size(); ++i) {
      ways_(3 * dot + ways[i].axis, linear + static_cast<int>(i)) = x[ways[i].degreeX] * y[ways[i].degreeY];
    }
  }
}

cv::Vec3d ShapeBasis::deviation(int dot, Eigen::VectorXd const& parameters) const {
  if (parameterCount_ == 0) {
    return {};
  }
  Eigen::Vector3d const moved =
      isByDot() ? Eigen::Vector3d(parameters.segment<3>(3 * dot)) : Eigen::Vector3d(ofDot(dot) * parameters);
  return {moved[0], moved[1], moved[2]};
}

double ShapeBasis::priorWeight(int parameter) const {
  // A seven-hundredth of the pitch in the plane and a seventieth of it in height: wider than prints are off,
  // narrow enough to hold the scale.
  double const inPlane = pitch_ / 700;
  double const inHeight = pitch_ / 70;
  double const sigma = parameter % 3 == 2 ? inHeight : inPlane;
  return isByDot() ? 1 / (sigma * sigma) : 0;
}

} // namespace vorn::mv
