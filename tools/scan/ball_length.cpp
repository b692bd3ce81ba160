// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/ball_length.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/measure/fit.hpp>

#include "core/median.hpp"

namespace vorn::tools {

namespace {

constexpr std::size_t fewestPoints = 100;

std::string placeText(cv::Point const& pixel) {
  return std::to_string(pixel.x) + "," + std::to_string(pixel.y);
}

bool isPoint(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& pixel) {
  return cv::Rect({0, 0}, xyz.size()).contains(pixel) && !std::isnan(xyz(pixel)[2]);
}

double distance(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& a, cv::Point const& b) {
  return cv::norm(cv::Vec3d(xyz(a)) - cv::Vec3d(xyz(b)));
}

/// The nearest pixel that has a point.
cv::Point startAt(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& at) {
  constexpr int reach = 5;
  cv::Point best;
  int least = 2 * reach * reach + 1;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x <= reach; ++x) {
      if (x * x + y * y < least && isPoint(xyz, at + cv::Point(x, y))) {
        least = x * x + y * y;
        best = at + cv::Point(x, y);
      }
    }
  }
  if (least > 2 * reach * reach) {
    throw Exception("There is no point at pixel " + placeText(at), nullptr, 0, "check");
  }
  return best;
}

/// Median distance of neighbours around a pixel.
double spacingAt(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& at) {
  constexpr int reach = 5;
  std::vector<double> steps;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x < reach; ++x) {
      cv::Point const one = at + cv::Point(x, y);
      if (isPoint(xyz, one) && isPoint(xyz, one + cv::Point(1, 0))) {
        steps.push_back(distance(xyz, one, one + cv::Point(1, 0)));
      }
    }
  }
  return medianOf(steps);
}

/// The points that hang together with the one at a pixel, without a step of many pixels' widths.
std::vector<cv::Point3f> surfaceAt(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& start) {
  constexpr double greatestStep = 6; // widths of a pixel: a slope of 80 degrees
  double const most = greatestStep * spacingAt(xyz, start);
  cv::Mat_<uchar> isTaken(xyz.size(), uchar(0));
  std::vector<cv::Point> front{start};
  std::vector<cv::Point3f> points;
  isTaken(start) = 1;
  while (!front.empty()) {
    cv::Point const here = front.back();
    front.pop_back();
    points.emplace_back(xyz(here));
    for (cv::Point const& step : {cv::Point(1, 0), cv::Point(-1, 0), cv::Point(0, 1), cv::Point(0, -1)}) {
      cv::Point const next = here + step;
      if (isPoint(xyz, next) && isTaken(next) == 0 && distance(xyz, here, next) <= most) {
        isTaken(next) = 1;
        front.push_back(next);
      }
    }
  }
  return points;
}

using SphereFit = mv::Fit<mv::Sphere3f>;

constexpr double mostForm = 0.05; ///< of the radius

bool isBall(SphereFit const& fit, std::size_t points, double leastShare) {
  auto const share = static_cast<double>(fit.inliers.size()) / static_cast<double>(points);
  return fit.form <= mostForm * static_cast<double>(fit.feature.radius()) && share >= leastShare;
}

/// The sphere through the points around the first one, of as many as make one: what the ball rests on or is
/// joined to comes farther out.
std::optional<SphereFit> grownFrom(std::vector<cv::Point3f> points) {
  auto const from = [first = points.front()](cv::Point3f const& p) { return cv::norm(p - first); };
  std::sort(points.begin(), points.end(),
            [&](cv::Point3f const& a, cv::Point3f const& b) { return from(a) < from(b); });
  std::optional<SphereFit> best;
  constexpr double leastShare = 0.9;
  for (std::size_t count = fewestPoints;; count *= 2) {
    count = std::min(count, points.size());
    try {
      SphereFit const fit =
          mv::fitSphere({points.begin(), points.begin() + static_cast<std::ptrdiff_t>(count)});
      if (isBall(fit, count, leastShare)) {
        best = fit;
      } else if (best) {
        break;
      }
    } catch (Exception const&) { // too small a cap to tell from a plane: a larger one may do
      if (best) {
        break;
      }
    }
    if (count == points.size()) {
      break;
    }
  }
  return best;
}

} // namespace

ScannedBall findBall(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& at) {
  std::vector<cv::Point3f> const points = surfaceAt(xyz, startAt(xyz, at));
  auto const refuse = [&](std::string const& reason) {
    return Exception("There is no ball at pixel " + placeText(at) + ": " + reason, nullptr, 0, "check");
  };
  if (points.size() < fewestPoints) {
    throw refuse("only " + std::to_string(points.size()) + " points hang together there");
  }
  std::optional<SphereFit> const grown = grownFrom(points);
  if (!grown) {
    throw refuse("the points there are no sphere");
  }
  double const reach = std::max(grown->form, 0.01 * static_cast<double>(grown->feature.radius()));
  std::vector<cv::Point3f> near;
  std::copy_if(points.begin(), points.end(), std::back_inserter(near),
               [&](cv::Point3f const& p) { return grown->feature.distance(p) <= reach; });
  SphereFit fit;
  try {
    fit = mv::fitSphere(near);
  } catch (Exception const&) { // whose text knows nothing of balls and pixels
    throw refuse("the points there are no sphere, but a plane as it seems");
  }
  ScannedBall ball;
  ball.sphere = fit.feature;
  ball.points = fit.inliers.size();
  ball.form = fit.form;
  ball.covariance = cv::Matx33d(fit.covariance(cv::Rect(0, 0, 3, 3)));
  return ball;
}

BallLength measureBalls(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& first, cv::Point const& second) {
  BallLength result;
  result.balls = {findBall(xyz, first), findBall(xyz, second)};
  cv::Vec3d const between = cv::Vec3d(cv::Point3d(result.balls[1].sphere.centre())) -
                            cv::Vec3d(cv::Point3d(result.balls[0].sphere.centre()));
  result.length = cv::norm(between);
  if (result.length < static_cast<double>(result.balls[0].sphere.radius())) {
    throw Exception("Pixels " + placeText(first) + " and " + placeText(second) + " show one ball", nullptr, 0,
                    "check");
  }
  cv::Vec3d const along = between / result.length;
  result.sigma = std::sqrt(along.dot((result.balls[0].covariance + result.balls[1].covariance) * along));
  return result;
}

} // namespace vorn::tools
