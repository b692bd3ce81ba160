// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/common_directions.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "registration/small_motion.hpp"

namespace vorn::mv {

namespace {

constexpr double degree = CV_PI / 180.0;
/// Normals of one face, and of another one.
double const sameFace = std::cos(6.0 * degree);
double const otherFace = std::cos(12.0 * degree);
constexpr std::size_t mostFaces = 9;
constexpr double leastShare = 0.015; ///< of the points, that a face has
/// Sine of the angle by which normals across an axis may miss it.
constexpr double acrossAxis = 0.08;
constexpr std::size_t mostAxes = 3;
/// Directions closer to each other than this, or to being opposite, give no exact turn.
double const leastBetween = std::cos(25.0 * degree);
constexpr double angleTolerance = 3.5 * degree;
/// Faces and axes that are swept about.
constexpr std::size_t sweptFaces = 2;
constexpr std::size_t sweptAxes = 1;
constexpr int sweepSteps = 72;
/// Rotations less than this apart are one.
constexpr double sameRotation = 3.0 * degree;
constexpr std::size_t mostPairs = 1000;

struct Direction {
  cv::Vec3d along;
  double weight; ///< its share of the points
  bool isAxis;
};

bool isAlong(cv::Vec3d const& a, cv::Vec3d const& b, double leastCosine) {
  return a.dot(b) > leastCosine;
}

/// The mean of the normals near a direction.
Direction faceNear(std::vector<OrientedPoint> const& points, cv::Vec3d along) {
  double count = 0.0;
  for (int round = 0; round < 3; ++round) {
    cv::Vec3d sum;
    count = 0.0;
    for (OrientedPoint const& point : points) {
      if (isAlong(point.normal, along, sameFace)) {
        sum += point.normal;
        count += 1.0;
      }
    }
    double const length = std::sqrt(sum.dot(sum));
    if (!(length > 0.0)) {
      break;
    }
    along = sum * (1.0 / length);
  }
  return {along, count / static_cast<double>(points.size()), false};
}

/// The directions that the most normals have, most first.
std::vector<Direction> facesOf(std::vector<OrientedPoint> const& points) {
  std::vector<int> counts(points.size(), 0);
  parallelRows(static_cast<int>(points.size()), [&](int first, int end) {
    for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
      counts[i] =
          static_cast<int>(std::count_if(points.begin(), points.end(), [&](OrientedPoint const& other) {
            return isAlong(other.normal, points[i].normal, sameFace);
          }));
    }
  });
  std::vector<Direction> faces;
  std::vector<bool> areTaken(points.size(), false);
  while (faces.size() < mostFaces) {
    std::size_t best = points.size();
    for (std::size_t i = 0; i < points.size(); ++i) {
      if (!areTaken[i] && (best == points.size() || counts[i] > counts[best])) {
        best = i;
      }
    }
    if (best == points.size() || counts[best] < leastShare * static_cast<double>(points.size())) {
      break;
    }
    faces.push_back(faceNear(points, points[best].normal));
    for (std::size_t i = 0; i < points.size(); ++i) {
      areTaken[i] = areTaken[i] || isAlong(points[i].normal, faces.back().along, otherFace) || i == best;
    }
  }
  return faces;
}

/// The directions that the most normals are across to.
std::vector<Direction> axesOf(std::vector<OrientedPoint> const& points, std::vector<Direction> const& faces) {
  std::vector<Direction> candidates;
  for (std::size_t i = 0; i < faces.size(); ++i) {
    for (std::size_t j = i + 1; j < faces.size(); ++j) {
      if (std::abs(faces[i].along.dot(faces[j].along)) < leastBetween) {
        cv::Vec3d const axis = cv::normalize(faces[i].along.cross(faces[j].along));
        auto const count = std::count_if(points.begin(), points.end(), [&](OrientedPoint const& point) {
          return std::abs(point.normal.dot(axis)) < acrossAxis;
        });
        candidates.push_back({axis, static_cast<double>(count) / static_cast<double>(points.size()), true});
      }
    }
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](Direction const& a, Direction const& b) { return a.weight > b.weight; });
  std::vector<Direction> axes;
  for (Direction const& candidate : candidates) {
    bool const isKnown = std::any_of(axes.begin(), axes.end(), [&](Direction const& other) {
      return std::abs(other.along.dot(candidate.along)) > otherFace;
    });
    if (!isKnown && axes.size() < mostAxes) {
      axes.push_back(candidate);
    }
  }
  return axes;
}

std::vector<Direction> directionsOf(std::vector<OrientedPoint> const& points) {
  std::vector<Direction> directions = facesOf(points);
  for (Direction const& axis : axesOf(points, directions)) {
    directions.push_back(axis);
    directions.push_back({axis.along * -1.0, axis.weight, true});
  }
  return directions;
}

/// Axes along a first direction, and across it nearest to a second one.
cv::Matx33d frameOf(cv::Vec3d const& first, cv::Vec3d const& second) {
  cv::Vec3d const third = cv::normalize(first.cross(second));
  cv::Vec3d const across = third.cross(first);
  return {first[0], across[0], third[0], first[1], across[1], third[1], first[2], across[2], third[2]};
}

/// Axes of which two directions are equally far from the first two.
cv::Matx33d evenFrameOf(cv::Vec3d const& a, cv::Vec3d const& b) {
  return frameOf(cv::normalize(a + b), b - a);
}

cv::Vec3d anyAcross(cv::Vec3d const& along) {
  return std::abs(along[0]) < 0.6 ? cv::Vec3d(1, 0, 0) : cv::Vec3d(0, 1, 0);
}

struct Weighted {
  cv::Matx33d rotation;
  double weight;
};

/// The rotations that take two directions of the source to two of the target.
std::vector<Weighted> rotationsOfPairs(std::vector<Direction> const& source,
                                       std::vector<Direction> const& target) {
  std::vector<Weighted> found;
  for (std::size_t i = 0; i < source.size(); ++i) {
    for (std::size_t j = i + 1; j < source.size(); ++j) {
      double const inSource = source[i].along.dot(source[j].along);
      for (std::size_t k = 0; k < target.size() && std::abs(inSource) < leastBetween; ++k) {
        for (std::size_t l = 0; l < target.size(); ++l) {
          double const inTarget = target[k].along.dot(target[l].along);
          bool const areAlike =
              k != l && std::abs(std::acos(std::clamp(inSource, -1.0, 1.0)) -
                                 std::acos(std::clamp(inTarget, -1.0, 1.0))) < angleTolerance;
          if (areAlike) {
            cv::Matx33d const rotation = evenFrameOf(target[k].along, target[l].along) *
                                         evenFrameOf(source[i].along, source[j].along).t();
            found.push_back({rotation, std::min(source[i].weight, target[k].weight) *
                                           std::min(source[j].weight, target[l].weight)});
          }
        }
      }
    }
  }
  std::stable_sort(found.begin(), found.end(),
                   [](Weighted const& a, Weighted const& b) { return a.weight > b.weight; });
  return found;
}

/// The directions that are swept about.
std::vector<Direction> mainOnes(std::vector<Direction> const& directions) {
  std::vector<Direction> kept;
  std::size_t faces = 0;
  std::size_t axes = 0;
  for (Direction const& direction : directions) {
    std::size_t& count = direction.isAxis ? axes : faces;
    if (count++ < (direction.isAxis ? 2 * sweptAxes : sweptFaces)) { // axes come with both signs
      kept.push_back(direction);
    }
  }
  return kept;
}

} // namespace

std::vector<cv::Matx33d> rotationsOfDirections(std::vector<OrientedPoint> const& source,
                                               std::vector<OrientedPoint> const& target) {
  std::vector<Direction> const inSource = directionsOf(source);
  std::vector<Direction> const inTarget = directionsOf(target);
  std::vector<cv::Matx33d> rotations;
  double const leastTrace = 1.0 + 2.0 * std::cos(sameRotation);
  auto const add = [&](cv::Matx33d const& rotation) {
    bool const isKnown = std::any_of(rotations.begin(), rotations.end(), [&](cv::Matx33d const& other) {
      return rotation.dot(other) > leastTrace;
    });
    if (!isKnown) {
      rotations.push_back(rotation);
    }
  };
  for (Weighted const& pair : rotationsOfPairs(inSource, inTarget)) {
    add(pair.rotation);
    if (rotations.size() >= mostPairs) {
      break;
    }
  }
  for (Direction const& from : mainOnes(inSource)) {
    for (Direction const& to : mainOnes(inTarget)) {
      cv::Matx33d const level =
          frameOf(to.along, anyAcross(to.along)) * frameOf(from.along, anyAcross(from.along)).t();
      for (int step = 0; step < sweepSteps; ++step) {
        add(rotationOf(to.along * (2.0 * CV_PI * step / sweepSteps)) * level);
      }
    }
  }
  return rotations;
}

} // namespace vorn::mv
