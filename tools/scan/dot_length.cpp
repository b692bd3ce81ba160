// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/dot_length.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/measure/fit.hpp>

namespace vorn::tools {

namespace {

Exception refusal(cv::Point const& pixel, std::string const& reason) {
  return {"There is no dot at pixel " + std::to_string(pixel.x) + "," + std::to_string(pixel.y) + ": " +
              reason,
          nullptr, 0, "check"};
}

/// How far it is from a dot to the nearest other one in the image, pixels.
double spacingAt(mv::Detection const& target, std::size_t dot) {
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < target.keyPoints.size(); ++i) {
    if (i != dot) {
      least = std::min(least, cv::norm(target.keyPoints[i].imgPnt - target.keyPoints[dot].imgPnt));
    }
  }
  return least;
}

/// Where the ray of a dot's centre meets the plane of the points around it; nothing where these are too few.
std::optional<cv::Point3d> placeOf(mv::Detection const& target, std::size_t dot,
                                   cv::Mat_<cv::Vec3f> const& xyz, mv::Sl3dScanner const& scanner) {
  cv::Point2f const centre = target.keyPoints[dot].imgPnt;
  constexpr double shareOfSpacing = 1.5;
  double const reach = shareOfSpacing * spacingAt(target, dot);
  std::vector<cv::Point3f> points;
  cv::Rect const window = cv::Rect(cv::Point(cvFloor(centre.x - reach), cvFloor(centre.y - reach)),
                                   cv::Point(cvCeil(centre.x + reach), cvCeil(centre.y + reach))) &
                          cv::Rect({0, 0}, xyz.size());
  for (int y = window.y; y < window.br().y; ++y) {
    for (int x = window.x; x < window.br().x; ++x) {
      bool const isNear =
          std::hypot(x - static_cast<double>(centre.x), y - static_cast<double>(centre.y)) <= reach;
      if (isNear && !std::isnan(xyz(y, x)[2])) {
        points.emplace_back(xyz(y, x));
      }
    }
  }
  constexpr std::size_t fewest = 30;
  if (points.size() < fewest) {
    return std::nullopt;
  }
  mv::Plane3f const plane = mv::fitPlane(points).feature;
  cv::Point2f const normalised = scanner.getCameraModel().undistortPoints({centre})[0];
  cv::Vec3d const ray = mv::math::getR3(scanner.getPose()) * cv::Vec3d(normalised.x, normalised.y, 1);
  cv::Vec3d const from = mv::math::getT3(scanner.getPose());
  cv::Vec3d const normal(plane.normal());
  cv::Vec3d const on(cv::Point3d(plane.point()));
  double const depth = normal.dot(on - from) / normal.dot(ray);
  return std::isfinite(depth) ? std::optional<cv::Point3d>(cv::Point3d(from + depth * ray)) : std::nullopt;
}

/// The dots that a scan has a place for.
std::vector<ScannedDot> scannedDots(mv::Detection const& target, cv::Mat_<cv::Vec3f> const& xyz,
                                    mv::Sl3dScanner const& scanner) {
  std::vector<ScannedDot> dots;
  for (std::size_t i = 0; i < target.keyPoints.size(); ++i) {
    if (auto const place = placeOf(target, i, xyz, scanner)) {
      dots.push_back({target.keyPoints[i].imgPnt, target.indices[i], *place});
    }
  }
  return dots;
}

ScannedDot const& dotAt(std::vector<ScannedDot> const& dots, mv::Detection const& target,
                        cv::Point const& pixel) {
  auto const distance = [&pixel](cv::Point2f const& centre) { return cv::norm(centre - cv::Point2f(pixel)); };
  std::size_t nearest = 0;
  for (std::size_t i = 0; i < target.keyPoints.size(); ++i) {
    if (distance(target.keyPoints[i].imgPnt) < distance(target.keyPoints[nearest].imgPnt)) {
      nearest = i;
    }
  }
  if (distance(target.keyPoints[nearest].imgPnt) > 0.5 * spacingAt(target, nearest)) {
    throw refusal(pixel, "the nearest one of the target is " +
                             std::to_string(cvRound(distance(target.keyPoints[nearest].imgPnt))) +
                             " pixels away");
  }
  auto const found = std::find_if(
      dots.begin(), dots.end(), [&](ScannedDot const& dot) { return dot.index == target.indices[nearest]; });
  if (found == dots.end()) {
    throw refusal(pixel, "the scan has too few points around the one of the target there");
  }
  return *found;
}

/// One standard deviation of a coordinate of a dot along the target: what is left when an evenly spaced grid,
/// as slanted and stretched as it may be, is taken off.
double scatterOf(std::vector<ScannedDot> const& dots) {
  constexpr int unknowns = 3;
  auto const count = static_cast<int>(dots.size());
  if (count <= unknowns) {
    return 0;
  }
  cv::Mat_<double> grid(count, unknowns);
  cv::Mat_<double> places(count, 3);
  for (int i = 0; i < count; ++i) {
    ScannedDot const& dot = dots[static_cast<std::size_t>(i)];
    cv::Mat(cv::Matx13d(dot.index.x, dot.index.y, 1)).copyTo(grid.row(i));
    cv::Mat(cv::Matx13d(dot.place.x, dot.place.y, dot.place.z)).copyTo(places.row(i));
  }
  cv::Mat_<double> solution;
  cv::solve(grid, places, solution, cv::DECOMP_SVD);
  cv::Mat const difference = places - grid * solution;
  cv::Mat_<double> const rest = difference;
  cv::Vec3d const across(solution(0, 0), solution(0, 1), solution(0, 2));
  cv::Vec3d const down(solution(1, 0), solution(1, 1), solution(1, 2));
  cv::Vec3d const normal = cv::normalize(across.cross(down));
  double squares = 0;
  for (int i = 0; i < count; ++i) {
    cv::Vec3d const off(rest(i, 0), rest(i, 1), rest(i, 2));
    squares += off.dot(off) - std::pow(off.dot(normal), 2);
  }
  return std::sqrt(squares / (2.0 * (count - unknowns)));
}

} // namespace

DotLength measureDots(mv::Detection const& target, cv::Mat_<cv::Vec3f> const& xyz,
                      mv::Sl3dScanner const& scanner, cv::Point const& first, cv::Point const& second) {
  std::vector<ScannedDot> const dots = scannedDots(target, xyz, scanner);
  DotLength result;
  result.dots = {dotAt(dots, target, first), dotAt(dots, target, second)};
  if (result.dots[0].index == result.dots[1].index) {
    throw Exception("Pixels " + std::to_string(first.x) + "," + std::to_string(first.y) + " and " +
                        std::to_string(second.x) + "," + std::to_string(second.y) + " show one dot",
                    nullptr, 0, "check");
  }
  result.length = cv::norm(result.dots[1].place - result.dots[0].place);
  result.sigma = std::sqrt(2.0) * scatterOf(dots);
  result.gridDots = dots.size();
  return result;
}

} // namespace vorn::tools
