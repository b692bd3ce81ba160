// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/turntable.hpp>

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <string>

#include "core/error.hpp"
#include "geometry/rigid_motion.hpp"
#include "registration/point_motion.hpp"
#include "registration/small_motion.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "findTurntableAxis";
constexpr double leastTurn = 0.5 * CV_PI / 180.0;

void checkRigid(cv::Matx44d const& motion, std::size_t view) {
  constexpr double tolerance = 1e-6;
  if (!isRigidMotion(motion, tolerance)) {
    throw error("The place of view " + std::to_string(view) + " is no rigid motion", context);
  }
}

cv::Vec3d turnOf(cv::Matx44d const& motion) {
  cv::Vec3d turn;
  cv::Rodrigues(motion.get_minor<3, 3>(0, 0), turn);
  return turn;
}

cv::Vec3d shiftOf(cv::Matx44d const& motion) {
  return {motion(0, 3), motion(1, 3), motion(2, 3)};
}

/// The motions between all views.
std::vector<cv::Matx44d> motionsAmong(std::vector<cv::Matx44d> const& frameFromView) {
  std::vector<cv::Matx44d> motions;
  for (std::size_t i = 0; i < frameFromView.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      motions.push_back(frameFromView[i] * frameFromView[j].inv());
    }
  }
  return motions;
}

/// The direction that most of all turns are about.
cv::Vec3d directionOf(std::vector<cv::Matx44d> const& motions) {
  cv::Matx33d products = cv::Matx33d::zeros();
  double longest = 0.0;
  for (cv::Matx44d const& motion : motions) {
    cv::Vec3d const turn = turnOf(motion);
    products += turn * turn.t();
    longest = std::max(longest, cv::norm(turn));
  }
  if (longest < leastTurn) {
    throw error("The views turn by less than half a degree against each other", context);
  }
  cv::Vec3d values;
  cv::Matx33d vectors;
  cv::eigen(products, values, vectors);
  return {vectors(0, 0), vectors(0, 1), vectors(0, 2)};
}

/// The point nearest to the origin whose squares of moves are least.
cv::Vec3d pointOf(std::vector<cv::Matx44d> const& motions, cv::Vec3d const& direction) {
  // Moves along the axis do not depend on the point, so it is held at the origin's height.
  cv::Matx33d normal = direction * direction.t();
  cv::Vec3d right;
  for (cv::Matx44d const& motion : motions) {
    cv::Matx33d const change = motion.get_minor<3, 3>(0, 0) - cv::Matx33d::eye();
    normal += change.t() * change;
    right -= change.t() * shiftOf(motion);
  }
  cv::Vec3d const point = normal.solve(right, cv::DECOMP_SVD);
  return point - direction * direction.dot(point);
}

} // namespace

TurntableAxis findTurntableAxis(std::vector<cv::Matx44d> const& frameFromView) {
  if (frameFromView.size() < 2) {
    throw error(std::to_string(frameFromView.size()) + " views, fewer than two", context);
  }
  for (std::size_t i = 0; i < frameFromView.size(); ++i) {
    checkRigid(frameFromView[i], i);
  }
  std::vector<cv::Matx44d> const motions = motionsAmong(frameFromView);
  TurntableAxis axis;
  axis.direction = directionOf(motions);
  axis.point = pointOf(motions, axis.direction);
  double squares = 0.0;
  for (cv::Matx44d const& motion : motions) {
    cv::Vec3d const move = moved(motion, axis.point) - axis.point;
    squares += move.dot(move);
  }
  axis.rms = std::sqrt(squares / static_cast<double>(motions.size()));
  for (cv::Matx44d const& place : frameFromView) {
    axis.angles.push_back(turnOf(place * frameFromView.front().inv()).dot(axis.direction));
  }
  // So that the first view that turns does so forwards.
  auto const first = std::find_if(axis.angles.begin(), axis.angles.end(),
                                  [](double angle) { return std::abs(angle) >= leastTurn; });
  if (first != axis.angles.end() && *first < 0.0) {
    axis.direction = -axis.direction;
    for (double& angle : axis.angles) {
      angle = -angle;
    }
  }
  return axis;
}

std::vector<cv::Matx44d> turntablePlaces(TurntableAxis const& axis, cv::Matx44d const& first,
                                         std::vector<double> const& angles) {
  std::vector<cv::Matx44d> places;
  for (double const angle : angles) {
    cv::Matx33d const rotation = rotationOf(axis.direction * angle);
    places.push_back(motionOf(rotation, axis.point - rotation * axis.point) * first);
  }
  return places;
}

} // namespace vorn::mv
