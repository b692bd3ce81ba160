// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/shift_votes.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "registration/point_motion.hpp"

namespace vorn::mv {

namespace {

/// Points of the source that vote, and of the target that they vote for.
constexpr std::size_t mostVoters = 250;
constexpr std::size_t mostGoals = 1200;
constexpr double leastCosine = 0.92;
/// Directions that normals are rounded to, each way on each face of a cube.
constexpr int directionsEach = 8;
/// Edges that shifts in one cell differ by.
constexpr double cellOverEdge = 1.5;
constexpr double mostCells = 80.0; ///< each way
/// Shifts with fewer votes than this share of the most are not looked at.
constexpr float leastOfMost = 0.35F;

std::vector<OrientedPoint> someOf(std::vector<OrientedPoint> const& points, std::size_t most) {
  std::vector<OrientedPoint> some;
  std::size_t const count = std::min(most, points.size());
  for (std::size_t i = 0; i < count; ++i) {
    some.push_back(points[i * points.size() / count]);
  }
  return some;
}

cv::Vec3d middleOf(std::vector<OrientedPoint> const& points) {
  cv::Vec3d sum;
  for (OrientedPoint const& point : points) {
    sum += point.place;
  }
  return sum * (1.0 / static_cast<double>(std::max<std::size_t>(1, points.size())));
}

double reachOf(std::vector<OrientedPoint> const& points, cv::Vec3d const& middle) {
  double square = 0.0;
  for (OrientedPoint const& point : points) {
    cv::Vec3d const way = point.place - middle;
    square = std::max(square, way.dot(way));
  }
  return std::sqrt(square);
}

/// The number of the direction that one is rounded to.
std::size_t numberOf(cv::Vec3d const& direction) {
  int axis = 0;
  for (int i = 1; i < 3; ++i) {
    axis = std::abs(direction[i]) > std::abs(direction[axis]) ? i : axis;
  }
  double const length = std::max(std::abs(direction[axis]), 1e-9);
  auto const step = [&](int other) {
    double const place = (direction[other % 3] / length + 1.0) * 0.5 * directionsEach;
    return static_cast<std::size_t>(std::clamp(place, 0.0, directionsEach - 1.0));
  };
  auto const face = static_cast<std::size_t>(2 * axis + (direction[axis] < 0.0 ? 1 : 0));
  return (face * directionsEach + step(axis + 1)) * directionsEach + step(axis + 2);
}

/// The direction of a number.
cv::Vec3d directionOf(std::size_t number) {
  auto const step = [](std::size_t at) {
    return (static_cast<double>(at) + 0.5) / directionsEach * 2.0 - 1.0;
  };
  std::size_t const face = number / directionsEach / directionsEach;
  auto const axis = static_cast<int>(face / 2);
  cv::Vec3d direction;
  direction[axis] = face % 2 == 0 ? 1.0 : -1.0;
  direction[(axis + 1) % 3] = step(number / directionsEach % directionsEach);
  direction[(axis + 2) % 3] = step(number % directionsEach);
  return direction * (1.0 / std::sqrt(direction.dot(direction)));
}

} // namespace

ShiftVotes::ShiftVotes(std::vector<OrientedPoint> const& source, std::vector<OrientedPoint> const& target,
                       double edge)
    : sourceMiddle_(middleOf(source)), targetMiddle_(middleOf(target)), source_(someOf(source, mostVoters)) {
  double const reach = reachOf(source, sourceMiddle_) + reachOf(target, targetMiddle_);
  cell_ = std::max(cellOverEdge * edge, 2.0 * reach / mostCells);
  side_ = 2 * static_cast<int>(std::ceil(reach / cell_)) + 3;
  for (OrientedPoint& point : source_) {
    point.place -= sourceMiddle_;
  }
  std::vector<OrientedPoint> const goals = someOf(target, mostGoals);
  for (OrientedPoint const& point : goals) {
    target_.emplace_back((point.place - targetMiddle_) * (1.0 / cell_) + cv::Vec3d::all(0.5 * side_));
  }
  alike_.resize(std::size_t{6} * directionsEach * directionsEach);
  for (std::size_t number = 0; number < alike_.size(); ++number) {
    cv::Vec3d const direction = directionOf(number);
    for (std::size_t i = 0; i < goals.size(); ++i) {
      if (goals[i].normal.dot(direction) > leastCosine) {
        alike_[number].push_back(static_cast<unsigned>(i));
      }
    }
  }
}

std::vector<cv::Matx44d> ShiftVotes::motions(cv::Matx33d const& targetFromSource, std::size_t most) const {
  auto const side = static_cast<std::size_t>(side_);
  std::vector<float> votes(side * side * side, 0.0F);
  for (OrientedPoint const& point : source_) {
    cv::Vec3f const place(targetFromSource * point.place * (1.0 / cell_));
    std::vector<unsigned> const& alike = alike_[numberOf(targetFromSource * point.normal)];
    float const share = 1.0F / static_cast<float>(std::max<std::size_t>(1, alike.size()));
    for (unsigned const goal : alike) {
      cv::Vec3f const shift = target_[goal] - place;
      votes[(static_cast<std::size_t>(shift[2]) * side + static_cast<std::size_t>(shift[1])) * side +
            static_cast<std::size_t>(shift[0])] += share;
    }
  }
  float const highest = *std::max_element(votes.begin(), votes.end());
  float const least = std::max(leastOfMost * highest, 1e-6F);
  std::vector<std::pair<float, std::size_t>> peaks;
  for (std::size_t at = side * side + side + 1; at + side * side + side + 1 < votes.size(); ++at) {
    if (votes[at] < least) {
      continue;
    }
    // Highest of the six around, the earlier of equals.
    bool isPeak = true;
    for (std::size_t const step : {std::size_t{1}, side, side * side}) {
      isPeak = isPeak && votes[at] > votes[at - step] && votes[at] >= votes[at + step];
    }
    if (isPeak) {
      peaks.emplace_back(-votes[at], at);
    }
  }
  std::size_t const kept = std::min(most, peaks.size());
  std::partial_sort(peaks.begin(), peaks.begin() + static_cast<std::ptrdiff_t>(kept), peaks.end());
  std::vector<cv::Matx44d> found;
  for (std::size_t i = 0; i < kept; ++i) {
    std::size_t const at = peaks[i].second;
    cv::Vec3d const cell(static_cast<double>(at % side), static_cast<double>(at / side % side),
                         static_cast<double>(at / side / side));
    cv::Vec3d const shift = (cell + cv::Vec3d::all(0.5 - 0.5 * side_)) * cell_;
    found.push_back(motionOf(targetFromSource, targetMiddle_ + shift - targetFromSource * sourceMiddle_));
  }
  return found;
}

} // namespace vorn::mv
