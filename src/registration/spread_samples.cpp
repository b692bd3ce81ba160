// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/spread_samples.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <unordered_map>

namespace vorn::mv {

namespace {

/// Points by the cube of space that they lie in.
class Cubes {
public:
  explicit Cubes(double edge) : edge_(edge) {}

  void add(cv::Vec3d const& point, unsigned value) { cubes_[keyOf(cubeOf(point))].push_back(value); }

  /// Whether `accepts(value)` holds for any value in the cube of a point or one next to it.
  template <class Accepts>
  bool any(cv::Vec3d const& point, Accepts const& accepts) const {
    Cube const middle = cubeOf(point);
    for (int i = 0; i < 27; ++i) {
      auto const found =
          cubes_.find(keyOf({middle[0] + i % 3 - 1, middle[1] + i / 3 % 3 - 1, middle[2] + i / 9 - 1}));
      if (found != cubes_.end() && std::any_of(found->second.begin(), found->second.end(), accepts)) {
        return true;
      }
    }
    return false;
  }

private:
  using Cube = std::array<std::int64_t, 3>;

  Cube cubeOf(cv::Vec3d const& point) const {
    Cube cube{};
    for (int axis = 0; axis < 3; ++axis) {
      // Beyond this no two floats are as near as the smallest edge.
      constexpr double most = 1e15;
      cube[static_cast<std::size_t>(axis)] =
          static_cast<std::int64_t>(std::clamp(std::floor(point[axis] / edge_), -most, most));
    }
    return cube;
  }

  /// Cubes far from each other may share a key: that costs time, not truth.
  static std::uint64_t keyOf(Cube const& cube) {
    std::uint64_t key = 0;
    for (std::int64_t const part : cube) {
      key = (key ^ static_cast<std::uint64_t>(part)) * 0x9E3779B97F4A7C15U;
      key ^= key >> 32U;
    }
    return key;
  }

  double edge_;
  std::unordered_map<std::uint64_t, std::vector<unsigned>> cubes_;
};

/// The face of a cube that a normal points through, and where: 6 x 4 x 4 directions.
std::size_t directionOf(cv::Vec3f const& normal) {
  int axis = 0;
  for (int i = 1; i < 3; ++i) {
    axis = std::abs(normal[i]) > std::abs(normal[axis]) ? i : axis;
  }
  auto const across = [&](int other) {
    float const share = normal[other] / std::abs(normal[axis]);
    return static_cast<std::size_t>(std::clamp(static_cast<int>((share + 1.0F) * 2.0F), 0, 3));
  };
  auto const face = static_cast<std::size_t>(2 * axis + (normal[axis] < 0.0F ? 1 : 0));
  return (face * 4 + across((axis + 1) % 3)) * 4 + across((axis + 2) % 3);
}
constexpr std::size_t directions = 96;

} // namespace

std::vector<unsigned> spreadSamples(PointCloud const& cloud, std::vector<unsigned> const& candidates,
                                    SampleSpread const& spread, std::size_t count) {
  auto const cellOf = [&](unsigned index) {
    return cv::Point(static_cast<int>(index) % cloud.points().cols,
                     static_cast<int>(index) / cloud.points().cols);
  };
  auto const cosine = static_cast<float>(std::cos(spread.angleThreshold * CV_PI / 180.0));
  double const farSquare = spread.radius * spread.radius;
  double const nearSquare = std::min(spread.angledRadius * spread.angledRadius, farSquare);
  Cubes kept(spread.radius);
  std::array<std::vector<unsigned>, directions> byDirection;
  for (unsigned const index : candidates) {
    cv::Vec3d const point(cloud.points()(cellOf(index)));
    cv::Vec3f const& normal = cloud.normals()(cellOf(index));
    bool const isTaken = kept.any(point, [&](unsigned other) {
      cv::Vec3d const difference = cv::Vec3d(cloud.points()(cellOf(other))) - point;
      double const square = difference.dot(difference);
      return square < nearSquare ||
             (square < farSquare && normal.dot(cloud.normals()(cellOf(other))) > cosine);
    });
    if (!isTaken) {
      kept.add(point, index);
      byDirection[directionOf(normal)].push_back(index);
    }
  }
  std::size_t total = 0;
  std::size_t most = 0;
  for (std::vector<unsigned> const& list : byDirection) {
    total += list.size();
    most = std::max(most, list.size());
  }
  // As many from each direction as it takes to make up the count.
  std::size_t share = most;
  for (std::size_t low = 0; total > count && low + 1 < share;) {
    std::size_t const middle = (low + share) / 2;
    std::size_t taken = 0;
    for (std::vector<unsigned> const& list : byDirection) {
      taken += std::min(list.size(), middle);
    }
    (taken >= count ? share : low) = middle;
  }
  std::vector<unsigned> samples;
  for (std::vector<unsigned> const& list : byDirection) {
    std::size_t const taken = std::min(list.size(), share);
    for (std::size_t i = 0; i < taken; ++i) {
      samples.push_back(list[i * list.size() / taken]);
    }
  }
  if (samples.size() > count) {
    for (std::size_t i = 0; i < count; ++i) {
      samples[i] = samples[i * samples.size() / count];
    }
    samples.resize(count);
  }
  std::sort(samples.begin(), samples.end());
  return samples;
}

} // namespace vorn::mv
